#pragma once

#include <grpcpp/support/server_interceptor.h>

#include <functional>
#include <memory>

namespace platform {

/// Has a server call `beforeAnswer` in the thread of each call, after its handler has returned and
/// before its status goes to the client.
std::unique_ptr<grpc::experimental::ServerInterceptorFactoryInterface> answerInterceptors(
    std::function<void()> beforeAnswer);

}  // namespace platform
