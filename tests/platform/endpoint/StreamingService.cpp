#include "platform/endpoint/StreamingService.h"

#include <stdexcept>

using namespace dio::endpoint;

grpc::Status StreamingService::Notifications(grpc::ServerContext* /*context*/, Stream* stream) {
    change(1);
    stream->Write(NotificationInfo());
    ClientNotificationInfo message;
    while (stream->Read(&message)) {
    }
    change(-1);
    return grpc::Status::OK;
}

grpc::Status StreamingService::SetCellFIIR(grpc::ServerContext* /*context*/, const FIIR* /*filter*/,
                                           Void* /*reply*/) {
    return grpc::Status::OK;
}

grpc::Status StreamingService::GetActiveSlot(grpc::ServerContext* /*context*/,
                                             const Void* /*request*/, Index* /*reply*/) {
    throw std::runtime_error("a handler's failure");
}

int StreamingService::openStreams() const {
    const std::lock_guard guard(mutex_);
    return openStreams_;
}

bool StreamingService::waitForAtMost(int count, std::chrono::milliseconds timeout) {
    std::unique_lock guard(mutex_);
    return changed_.wait_for(guard, timeout, [&] { return openStreams_ <= count; });
}

void StreamingService::change(int by) {
    const std::lock_guard guard(mutex_);
    openStreams_ += by;
    changed_.notify_all();
}
