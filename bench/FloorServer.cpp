// vesk-bench-floor: what the benchmarks measure the device against, in a process of its own as the
// device is.
//
// Serves the calibration protocol with empty handlers on the same kind of server, prints its port,
// and runs until it is asked to end. SetActiveSlot alone does something: it publishes an image
// whose last channel begins with the slot's number, and nothing else.

#include "EmptyEndpoint.h"
#include "FloorSegment.h"
#include "platform/endpoint/GrpcServer.h"

#include <grpcpp/grpcpp.h>

#include <csignal>
#include <iostream>
#include <memory>

namespace {

class PublishingEndpoint : public EmptyEndpoint {
public:
    grpc::Status SetActiveSlot(Context*, const Index* slot, Void*) override {
        segment_.publish(static_cast<float>(slot->value()));
        return grpc::Status::OK;
    }

private:
    FloorSegment segment_;
};

/// In main() before there are threads, so that all of them inherit it.
sigset_t blockEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

}  // namespace

int main() {
    const sigset_t endSignals = blockEndSignals();
    // The device's server intercepts answers, so this one does as well.
    const auto server = platform::GrpcServer::start(std::make_shared<PublishingEndpoint>(),
                                                    "127.0.0.1", 0, {}, [] {});
    if (!server)
        return 1;
    std::cout << server->port() << std::endl;
    int signal = 0;
    sigwait(&endSignals, &signal);
    server->stop();
}
