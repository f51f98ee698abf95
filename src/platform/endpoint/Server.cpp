#include "sdk/endpoint/Server.h"

#include "platform/PlatformPaths.h"
#include "platform/endpoint/GrpcServer.h"
#include "sdk/cm/CMAbstractWorker.h"

#include <utility>

namespace endpoint {
namespace {

constexpr auto kAllInterfaces = "0.0.0.0";

std::string listenAddress() {
    const QString address =
        VeskValue(CMRoot()->getValue(platform::endpointListenAddressPath())).string();
    return address.isEmpty() ? kAllInterfaces : address.toStdString();
}

}  // namespace

std::unique_ptr<Server> createServer(std::shared_ptr<grpc::Service> service, unsigned short port) {
    return platform::GrpcServer::start(std::move(service), listenAddress(), port);
}

}  // namespace endpoint
