#include "support/ControlClient.h"

#include <grpcpp/grpcpp.h>

#include <stdexcept>

namespace {

using namespace std::chrono_literals;
using vesk::control::Control;

constexpr auto kPatience = 10s;

std::chrono::system_clock::time_point after(std::chrono::milliseconds duration) {
    return std::chrono::system_clock::now() + duration;
}

std::shared_ptr<grpc::Channel> connect(const std::filesystem::path& socket) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    arguments.SetMaxReceiveMessageSize(-1);
    return grpc::CreateCustomChannel("unix:" + socket.string(), grpc::InsecureChannelCredentials(),
                                     arguments);
}

void require(const grpc::Status& status, const std::string& what) {
    if (!status.ok())
        throw std::runtime_error(what + ": " + status.error_message());
}

}  // namespace

ControlClient::ControlClient(const std::filesystem::path& socket)
    : stub_(Control::NewStub(connect(socket))) {
}

vesk::control::Node ControlClient::node(const std::string& path) {
    grpc::ClientContext context;
    context.set_deadline(after(kPatience));
    vesk::control::GetRequest request;
    request.set_path(path);
    vesk::control::Node node;
    require(stub_->Get(&context, request, &node), path);
    return node;
}

nlohmann::json ControlClient::value(const std::string& path) {
    return nlohmann::json::parse(node(path).value().json());
}

std::vector<std::string> ControlClient::rowTitles(const std::string& path) {
    const vesk::control::Node rows = node(path);
    std::vector<std::string> titles;
    for (const auto& row : rows.rows())
        titles.push_back(row.title());
    return titles;
}

grpc::Status ControlClient::set(const std::string& path, const nlohmann::json& value) {
    grpc::ClientContext context;
    context.set_deadline(after(kPatience));
    vesk::control::SetRequest request;
    request.set_path(path);
    request.set_text(value.dump());
    vesk::control::SetReply reply;
    return stub_->Set(&context, request, &reply);
}

bool ControlClient::isQuietFor(std::chrono::milliseconds duration,
                               const std::vector<std::string>& prefixes) {
    grpc::ClientContext context;
    vesk::control::WatchRequest request;
    request.mutable_prefixes()->Add(prefixes.begin(), prefixes.end());
    context.set_deadline(after(duration));
    const auto reader = stub_->Watch(&context, request);
    vesk::control::Node change;
    if (reader->Read(&change)) {
        context.TryCancel();
        reader->Finish();
        return false;
    }
    const grpc::Status status = reader->Finish();
    if (status.error_code() != grpc::StatusCode::DEADLINE_EXCEEDED)
        require(status, "watch");
    return true;
}
