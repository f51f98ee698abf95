#pragma once

#include <functional>

namespace grpc {
class ServerBuilder;
}

namespace platform {

/// Has the server call `beforeAnswer` in the thread of each call, after its handler has returned
/// and before its status goes to the client.
void interceptAnswers(grpc::ServerBuilder& builder, const std::function<void()>& beforeAnswer);

}  // namespace platform
