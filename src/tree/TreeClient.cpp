#include "tree/TreeClient.h"

#include "tree/Errors.h"

#include <control.grpc.pb.h>
#include <grpcpp/create_channel.h>

#include <chrono>

namespace tree {

using grpc::ClientContext;
using grpc::Status;
using grpc::StatusCode;
using vesk::control::Control;
using vesk::control::Node;

namespace {

constexpr std::chrono::seconds kPatience{30};  // with a device that hangs

std::shared_ptr<grpc::Channel> openChannel(const std::string& socketPath) {
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(-1);  // as large as the device sends
    return grpc::CreateCustomChannel("unix:" + socketPath, grpc::InsecureChannelCredentials(),
                                     arguments);
}

}  // namespace

class TreeClient::Private {
public:
    explicit Private(const std::string& socketPath)
        : socketPath_(socketPath), stub_(Control::NewStub(openChannel(socketPath))) {}

    template <typename Request, typename Reply>
    Reply call(Status (Control::Stub::*method)(ClientContext*, const Request&, Reply*),
               const Request& request) {
        ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + kPatience);
        Reply reply;
        require((*stub_.*method)(&context, request, &reply));
        return reply;
    }

    Control::Stub& stub() { return *stub_; }

    void require(const Status& status) const {
        if (status.ok())
            return;
        if (status.error_code() == StatusCode::UNAVAILABLE)
            throw UnreachableError(socketPath_ + ": no device answers: " + status.error_message());
        throw RefusedError(status.error_message());
    }

private:
    const std::string socketPath_;
    const std::unique_ptr<Control::Stub> stub_;
};

TreeClient::TreeClient(const std::string& socketPath)
    : private_(std::make_unique<Private>(socketPath)) {
}

TreeClient::~TreeClient() = default;

std::vector<Node> TreeClient::list(const std::string& prefix) {
    vesk::control::ListRequest request;
    request.set_prefix(prefix);
    const auto reply = private_->call(&Control::Stub::List, request);
    return {reply.nodes().begin(), reply.nodes().end()};
}

Node TreeClient::get(const std::string& path) {
    vesk::control::GetRequest request;
    request.set_path(path);
    return private_->call(&Control::Stub::Get, request);
}

void TreeClient::set(const std::string& path, const std::string& text, const std::string& type) {
    vesk::control::SetRequest request;
    request.set_path(path);
    request.set_text(text);
    request.set_type(type);
    private_->call(&Control::Stub::Set, request);
}

std::string TreeClient::invoke(const std::string& path, const std::string& arguments) {
    vesk::control::InvokeRequest request;
    request.set_path(path);
    request.set_arguments(arguments);
    return private_->call(&Control::Stub::Invoke, request).json();
}

void TreeClient::watch(const std::vector<std::string>& prefixes, bool present,
                       const std::function<bool(const Node&)>& onChange) {
    vesk::control::WatchRequest request;
    request.set_present(present);
    for (const auto& prefix : prefixes)
        request.add_prefixes(prefix);

    ClientContext context;
    const auto reader = private_->stub().Watch(&context, request);
    Node change;
    while (reader->Read(&change)) {
        if (onChange(change))
            continue;
        context.TryCancel();
        reader->Finish();
        return;
    }
    private_->require(reader->Finish());
}

}  // namespace tree
