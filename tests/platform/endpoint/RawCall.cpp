#include "platform/endpoint/RawCall.h"

#include <grpcpp/generic/generic_stub.h>

namespace {

std::string bytesOf(grpc::ByteBuffer& buffer) {
    grpc::Slice slice;
    if (!buffer.DumpToSingleSlice(&slice).ok())
        return {};
    return {reinterpret_cast<const char*>(slice.begin()), slice.size()};
}

}  // namespace

RawReply rawCall(const std::shared_ptr<grpc::Channel>& channel, const std::string& method,
                 const std::string& message) {
    grpc::GenericStub stub(channel);
    grpc::ClientContext context;
    grpc::CompletionQueue queue;
    const auto next = [&] {
        void* tag = nullptr;
        bool succeeded = false;
        return queue.Next(&tag, &succeeded) && succeeded;
    };
    const auto call = stub.PrepareCall(&context, method, &queue);
    call->StartCall(nullptr);
    next();
    const grpc::Slice request(message);
    call->WriteLast(grpc::ByteBuffer(&request, 1), grpc::WriteOptions(), nullptr);
    next();
    grpc::ByteBuffer answer;
    RawReply reply;
    call->Read(&answer, nullptr);
    if (next())
        reply.message = bytesOf(answer);
    call->Finish(&reply.status, nullptr);
    next();
    return reply;
}
