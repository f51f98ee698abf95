#include "platform/endpoint/AnswerInterceptor.h"

#include <grpcpp/grpcpp.h>
#include <grpcpp/support/server_interceptor.h>

#include <memory>
#include <utility>
#include <vector>

namespace platform {
namespace {

namespace experimental = grpc::experimental;

/// Watches one call.
class AnswerInterceptor : public experimental::Interceptor {
public:
    explicit AnswerInterceptor(const std::function<void()>& beforeAnswer)
        : beforeAnswer_(beforeAnswer) {}

    void Intercept(experimental::InterceptorBatchMethods* methods) override {
        if (methods->QueryInterceptionHookPoint(
                experimental::InterceptionHookPoints::PRE_SEND_STATUS))
            beforeAnswer_();
        methods->Proceed();
    }

private:
    const std::function<void()>& beforeAnswer_;  // the factory's, which outlives all calls
};

class AnswerInterceptorFactory : public experimental::ServerInterceptorFactoryInterface {
public:
    explicit AnswerInterceptorFactory(std::function<void()> beforeAnswer)
        : beforeAnswer_(std::move(beforeAnswer)) {}

    experimental::Interceptor* CreateServerInterceptor(experimental::ServerRpcInfo*) override {
        return new AnswerInterceptor(beforeAnswer_);
    }

private:
    const std::function<void()> beforeAnswer_;
};

}  // namespace

void interceptAnswers(grpc::ServerBuilder& builder, const std::function<void()>& beforeAnswer) {
    std::vector<std::unique_ptr<experimental::ServerInterceptorFactoryInterface>> factories;
    factories.push_back(std::make_unique<AnswerInterceptorFactory>(beforeAnswer));
    builder.experimental().SetInterceptorCreators(std::move(factories));
}

}  // namespace platform
