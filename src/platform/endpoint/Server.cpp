#include "sdk/endpoint/Server.h"

#include "platform/PlatformPaths.h"
#include "platform/cm/CurrentTree.h"
#include "platform/endpoint/GrpcServer.h"
#include "sdk/cm/CMAbstractWorker.h"

#include <chrono>
#include <utility>

namespace endpoint {
namespace {

constexpr auto kAllInterfaces = "0.0.0.0";

/// A client waits at most so long for a store that is slow or full.
constexpr std::chrono::seconds kStoreTime{1};

std::string listenAddress() {
    const QString address =
        VeskValue(CMRoot()->getValue(platform::endpointListenAddressPath())).string();
    return address.isEmpty() ? kAllInterfaces : address.toStdString();
}

}  // namespace

std::unique_ptr<Server> createServer(std::shared_ptr<grpc::Service> service, unsigned short port) {
    // Who is told that something is done finds it done after a crash, too.
    const auto untilStored = [tree = platform::currentTree()] {
        tree->waitUntilStored(kStoreTime);
    };
    return platform::GrpcServer::start(std::move(service), listenAddress(), port, {}, untilStored);
}

}  // namespace endpoint
