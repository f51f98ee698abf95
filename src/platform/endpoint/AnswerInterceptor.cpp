#include "platform/endpoint/AnswerInterceptor.h"

#include <utility>

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

std::unique_ptr<experimental::ServerInterceptorFactoryInterface> answerInterceptors(
    std::function<void()> beforeAnswer) {
    return std::make_unique<AnswerInterceptorFactory>(std::move(beforeAnswer));
}

}  // namespace platform
