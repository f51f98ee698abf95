#pragma once

#include "sdk/endpoint/Server.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace grpc {
class Server;
}

namespace platform {

/// What one server takes on, whatever its clients do.
struct GrpcServerLimits {
    /// Handlers that run at the same time. A call beyond them is refused with RESOURCE_EXHAUSTED.
    /// Room for 64 clients with an open stream and a call each, when the default is used.
    int handlers{128};

    /// Calls that one connection has open at the same time; its further calls wait in the client
    /// until one of them ends. A calibration client needs a few: its notifications, a stream of the
    /// microphone, a stimulus that plays, and the calls beside them. It takes many connections to
    /// use up the handlers.
    int callsOfAConnection{16};

    /// Bytes of one message from a client; a longer one is refused with RESOURCE_EXHAUSTED. The
    /// longest that has a use is a cell's filter of 65536 taps and 4096 biquads: with 5 bytes a tap
    /// and 27 a biquad in their least compact encoding, 438,272 bytes, and some bytes around them.
    ///
    /// A handler gets its message unpacked. Empty elements of two bytes each, whether or not the
    /// protocol knows their field, take most: 28 times the message, here 12.25 MiB.
    int messageBytes{448 << 10};

    /// Messages that are unpacked at the same time, or lie unpacked in a handler and have more than
    /// 64 KiB there; further calls wait until it is their turn. As many again for the reflection
    /// service. See MessageInterceptor.h.
    int unpackedMessages{4};

    /// Bytes that are buffered for all clients together; beyond them gRPC slows clients down and
    /// closes connections. Room for two messages in each handler.
    std::size_t bufferBytes{1U << 27};
};

/// A gRPC server with one service, server reflection and the standard health service.
///
/// Any thread may use it, but a handler must not stop or destroy its own server: that would wait
/// for itself.
class GrpcServer : public endpoint::Server {
public:
    /// Starts listening without encryption. `address` is a host name or numeric, IPv4 or IPv6;
    /// "0.0.0.0" and "::" are all interfaces. Port 0 is any free one. Null, with a log line that
    /// names address and port, when the address is not one of this host's or the port is taken.
    ///
    /// `beforeAnswer`, when given, is called in a call's thread after its handler has returned and
    /// before the client is told how the call ended.
    static std::unique_ptr<GrpcServer> start(std::shared_ptr<grpc::Service> service,
                                             const std::string& address, unsigned short port,
                                             const GrpcServerLimits& limits = {},
                                             const std::function<void()>& beforeAnswer = {});

    ~GrpcServer() override;
    GrpcServer(const GrpcServer&) = delete;
    GrpcServer& operator=(const GrpcServer&) = delete;

    /// Waits for a stop() of another thread to end.
    void stop() override;
    unsigned short port() const override { return port_; }

private:
    GrpcServer(std::shared_ptr<grpc::Service> service, std::unique_ptr<grpc::Server> server,
               unsigned short port);

    // Destroyed last: the server uses it to its end.
    const std::shared_ptr<grpc::Service> service_;
    const std::unique_ptr<grpc::Server> server_;
    const unsigned short port_;
    std::once_flag stopped_;
};

}  // namespace platform
