#pragma once

#include <endpoint.grpc.pb.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

/// A service whose Notifications stream stays open until the client or the server ends it, and
/// whose SetCellFIIR takes what it gets. Its other methods are those of the base.
class StreamingService : public dio::endpoint::EndpointDevice::Service {
public:
    using Stream = grpc::ServerReaderWriter<dio::endpoint::NotificationInfo,
                                            dio::endpoint::ClientNotificationInfo>;

    grpc::Status Notifications(grpc::ServerContext* context, Stream* stream) override;
    grpc::Status SetCellFIIR(grpc::ServerContext* context, const dio::endpoint::FIIR* filter,
                             dio::endpoint::Void* reply) override;
    /// Throws.
    grpc::Status GetActiveSlot(grpc::ServerContext* context, const dio::endpoint::Void* request,
                               dio::endpoint::Index* reply) override;

    int openStreams() const;
    /// False when there are still more than `count` after `timeout`.
    bool waitForAtMost(int count, std::chrono::milliseconds timeout = std::chrono::seconds(60));

private:
    void change(int by);

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int openStreams_{0};  ///< guarded by mutex_
};
