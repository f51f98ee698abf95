#include "platform/endpoint/MessageInterceptor.h"

#include "platform/endpoint/MessageGate.h"

#include <grpcpp/impl/codegen/config_protobuf.h>

#include <malloc.h>

#include <cstddef>
#include <optional>
#include <string_view>

namespace platform {
namespace {

namespace experimental = grpc::experimental;
using experimental::InterceptionHookPoints;
using Type = experimental::ServerRpcInfo::Type;

/// What a handler may hold without a place: 8 MiB in 128 handlers.
constexpr std::size_t kSmallMessage = 64 << 10;  // bytes, unpacked

/// More than the longest filter that has a use; a client that sends more wants to do harm.
constexpr std::size_t kLargestUseful = 1 << 20;  // bytes, unpacked

constexpr std::string_view kReflection = "/grpc.reflection.";
constexpr std::string_view kOtherServicesOfGrpc = "/grpc.";  // theirs are no protobuf messages

bool hasOneMessage(Type type) {
    return type == Type::UNARY || type == Type::SERVER_STREAMING;
}

/// Watches one call. gRPC makes it in the call's thread, before the call's message is unpacked.
class MessageInterceptor : public experimental::Interceptor {
public:
    explicit MessageInterceptor(bool hasOneMessage) : hasOneMessage_(hasOneMessage) {}

    void enter(MessageGate& gate) { place_.emplace(gate); }

    void Intercept(experimental::InterceptorBatchMethods* methods) override {
        if (methods->QueryInterceptionHookPoint(InterceptionHookPoints::POST_RECV_MESSAGE))
            receive(static_cast<grpc::protobuf::Message*>(methods->GetRecvMessage()));
        // The one message is gone by then.
        if (methods->QueryInterceptionHookPoint(InterceptionHookPoints::PRE_SEND_STATUS))
            leave();
        methods->Proceed();
    }

private:
    /// Null: there was none, or it was damaged.
    void receive(grpc::protobuf::Message* message) {
        isExcessive_ = !message || message->SpaceUsedLong() > kLargestUseful;
        if (message)
            message->DiscardUnknownFields();
        if (hasOneMessage_ && (!message || message->SpaceUsedLong() <= kSmallMessage))
            leave();
    }

    /// The C library would keep what a message took for the threads that happened to unpack it.
    void leave() {
        if (isExcessive_ && place_)
            malloc_trim(0);
        place_.reset();
    }

    const bool hasOneMessage_;
    bool isExcessive_{false};
    std::optional<MessageGate::Place> place_;
};

class MessageInterceptorFactory : public experimental::ServerInterceptorFactoryInterface {
public:
    explicit MessageInterceptorFactory(int places) : messages_(places), reflections_(places) {}

    experimental::Interceptor* CreateServerInterceptor(experimental::ServerRpcInfo* call) override {
        const std::string_view method = call->method();
        const bool isReflection = method.starts_with(kReflection);
        if (!isReflection && method.starts_with(kOtherServicesOfGrpc))
            return nullptr;
        auto interceptor = std::make_unique<MessageInterceptor>(hasOneMessage(call->type()));
        if (isReflection)
            interceptor->enter(reflections_);
        else if (hasOneMessage(call->type()))
            interceptor->enter(messages_);
        return interceptor.release();
    }

private:
    MessageGate messages_;
    MessageGate reflections_;
};

}  // namespace

std::unique_ptr<experimental::ServerInterceptorFactoryInterface> messageInterceptors(int places) {
    return std::make_unique<MessageInterceptorFactory>(places);
}

}  // namespace platform
