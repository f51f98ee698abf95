#include "platform/endpoint/StreamingClient.h"

using namespace dio::endpoint;

namespace {

/// Without this, channels to the same port share one connection.
grpc::ChannelArguments withOwnConnection(grpc::ChannelArguments arguments) {
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    return arguments;
}

void limit(grpc::ClientContext& context,
           std::chrono::milliseconds timeout = std::chrono::seconds(60)) {
    context.set_wait_for_ready(true);
    context.set_deadline(std::chrono::system_clock::now() + timeout);
}

}  // namespace

StreamingClient::StreamingClient(unsigned short port, grpc::ChannelArguments arguments,
                                 const std::string& host)
    : channel_(grpc::CreateCustomChannel(host + ':' + std::to_string(port),
                                         grpc::InsecureChannelCredentials(),
                                         withOwnConnection(std::move(arguments)))),
      stub_(EndpointDevice::NewStub(channel_)) {
}

grpc::Status StreamingClient::call(const FIIR& filter, std::chrono::milliseconds timeout) {
    grpc::ClientContext context;
    limit(context, timeout);
    Void reply;
    return stub_->SetCellFIIR(&context, filter, &reply);
}

grpc::Status StreamingClient::callThatThrows() {
    grpc::ClientContext context;
    limit(context);
    Index reply;
    return stub_->GetActiveSlot(&context, Void(), &reply);
}

OpenStream::OpenStream(StreamingClient& client)
    : stream_([&] {
          limit(context_);
          return client.stub().Notifications(&context_);
      }()) {
    NotificationInfo greeting;
    accepted_ = stream_->Read(&greeting);
}

OpenStream::~OpenStream() {
    context_.TryCancel();
    if (!finished_)
        stream_->Finish();
}

grpc::Status OpenStream::status() {
    NotificationInfo ignored;
    while (stream_->Read(&ignored)) {
    }
    finished_ = true;
    return stream_->Finish();
}
