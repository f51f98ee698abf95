#pragma once

#include <memory>

namespace grpc {
class Service;
}

namespace endpoint {

/// A running calibration server. Destroying it stops it.
class Server {
public:
    virtual ~Server() = default;

    /// Ends all calls and stops listening; open streams are cancelled. Returns when the last
    /// handler has returned. A second call does nothing.
    virtual void stop() = 0;

    /// The TCP port on which the server listens.
    virtual unsigned short port() const = 0;
};

/// Builds and starts a gRPC server for `service` at `port` (0: any free port). Null when it cannot
/// start, for example because the port is taken. The server holds a reference to the service.
std::unique_ptr<Server> createServer(std::shared_ptr<grpc::Service> service, unsigned short port);

}  // namespace endpoint
