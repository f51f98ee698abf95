#pragma once

#include <endpoint.grpc.pb.h>
#include <grpcpp/grpcpp.h>

#include <chrono>
#include <memory>
#include <string>

/// A client with a connection of its own.
class StreamingClient {
public:
    explicit StreamingClient(unsigned short port, grpc::ChannelArguments arguments = {},
                             const std::string& host = "127.0.0.1");

    /// A plain call; waits at most `timeout`.
    grpc::Status call(const dio::endpoint::FIIR& filter = {},
                      std::chrono::milliseconds timeout = std::chrono::seconds(60));
    grpc::Status callThatThrows();

    std::shared_ptr<grpc::Channel> channel() const { return channel_; }
    dio::endpoint::EndpointDevice::Stub& stub() { return *stub_; }

private:
    const std::shared_ptr<grpc::Channel> channel_;
    const std::unique_ptr<dio::endpoint::EndpointDevice::Stub> stub_;
};

/// An open Notifications stream; ended by the destructor.
class OpenStream {
public:
    /// Returns when the server has answered.
    explicit OpenStream(StreamingClient& client);
    ~OpenStream();
    OpenStream(const OpenStream&) = delete;
    OpenStream& operator=(const OpenStream&) = delete;

    /// Whether the server took the call.
    bool wasAccepted() const { return accepted_; }
    /// The final status; waits for it.
    grpc::Status status();

private:
    grpc::ClientContext context_;
    const std::unique_ptr<grpc::ClientReaderWriter<dio::endpoint::ClientNotificationInfo,
                                                   dio::endpoint::NotificationInfo>>
        stream_;
    bool accepted_{false};
    bool finished_{false};
};
