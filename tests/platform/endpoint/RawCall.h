#pragma once

#include <grpcpp/grpcpp.h>

#include <memory>
#include <string>

/// What a call returned, its message undecoded.
struct RawReply {
    grpc::Status status;
    std::string message;  ///< the first, as bytes
};

/// Calls a method of a service for which there is no generated code, with one message of bytes.
RawReply rawCall(const std::shared_ptr<grpc::Channel>& channel, const std::string& method,
                 const std::string& message);
