#include "host/ControlServer.h"

#include "host/ControlService.h"
#include "host/ControlSocket.h"

#include <grpcpp/resource_quota.h>
#include <grpcpp/server.h>
#include <grpcpp/server_builder.h>

#include <sys/stat.h>

#include <chrono>
#include <stdexcept>

namespace host {

namespace {

constexpr int kMostThreads = 32;                   // 16 watchers, and calls beside them
constexpr int kLargestMessage = 64 * 1024 * 1024;  // bytes; a device full of filters takes less
constexpr std::chrono::milliseconds kPatience{500};
constexpr mode_t kOwnerOnly = 0177;

/// The mask of new files while the object exists.
class FileMask {
public:
    explicit FileMask(mode_t mask) : previous_(umask(mask)) {}
    ~FileMask() { umask(previous_); }
    FileMask(const FileMask&) = delete;
    FileMask& operator=(const FileMask&) = delete;

private:
    const mode_t previous_;
};

std::unique_ptr<grpc::Server> startServer(ControlService& service, const std::string& path) {
    grpc::ResourceQuota quota("control");
    quota.SetMaxThreads(kMostThreads);
    grpc::ServerBuilder builder;
    builder.SetResourceQuota(quota);
    builder.SetMaxReceiveMessageSize(kLargestMessage);
    builder.SetMaxSendMessageSize(kLargestMessage);
    builder.AddListeningPort("unix:" + path, grpc::InsecureServerCredentials());
    builder.RegisterService(&service);

    const FileMask ownerOnly(kOwnerOnly);
    auto server = builder.BuildAndStart();
    if (!server)
        throw std::runtime_error(path + ": the control socket cannot be served");
    return server;
}

}  // namespace

class ControlServer::Private {
public:
    Private(platform::Tree& tree, const std::string& path)
        : service_(tree), socket_(path), server_(startServer(service_, socket_.path())) {}

    ~Private() {
        service_.stop();
        server_->Shutdown(std::chrono::system_clock::now() + kPatience);
        server_->Wait();
    }

private:
    ControlService service_;
    const ControlSocket socket_;
    const std::unique_ptr<grpc::Server> server_;
};

ControlServer::ControlServer(platform::Tree& tree, const std::string& socketPath)
    : private_(std::make_unique<Private>(tree, socketPath)) {
}

ControlServer::~ControlServer() = default;

}  // namespace host
