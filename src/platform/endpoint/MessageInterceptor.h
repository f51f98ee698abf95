#pragma once

#include <grpcpp/support/server_interceptor.h>

#include <memory>

namespace platform {

/// Bounds the memory that the messages of clients take once they are unpacked, which can be many
/// times their size:
/// - Of the calls that come with one message, `places` at a time unpack theirs; one that is large
///   keeps its place until its handler has returned. So the handler of a method whose message can
///   be large must not wait for another client.
/// - Fields that the protocol does not know are dropped before a handler sees them: no handler
///   reads them, and a handler that plays or waits would hold them for as long.
/// - Of the calls to server reflection, which read message after message, `places` run at a time.
std::unique_ptr<grpc::experimental::ServerInterceptorFactoryInterface> messageInterceptors(
    int places);

}  // namespace platform
