#include "host/ControlService.h"

#include "host/NodeMessage.h"
#include "host/ValueJson.h"
#include "host/WatchQueue.h"
#include "sdk/records/VeskRoles.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <vector>

namespace host {

namespace {

using grpc::ServerContext;
using grpc::Status;
using grpc::StatusCode;
using platform::NodeInfo;
using platform::NodeKind;
using vesk::control::Node;

constexpr std::chrono::milliseconds kBetweenLooks{50};  // at cancellation and shutdown
constexpr std::chrono::seconds kAnswerTime{10};         // of a worker
constexpr int kMostWatchers = 16;

CMPath pathOf(const std::string& text) {
    return CMPath(QString::fromStdString(text));
}

Status unknownPath(const std::string& path) {
    return {StatusCode::NOT_FOUND, "there is no node \"" + path + "\""};
}

/// The words of an error; its name when it has none.
std::string wordsOf(const CMError& error) {
    return (error.text().isEmpty() ? error.name() : error.text()).toStdString();
}

bool isBelow(const std::string& path, const std::string& prefix) {
    return path.starts_with(prefix);
}

template <typename Prefixes>
bool isBelowAny(const std::string& path, const Prefixes& prefixes) {
    return prefixes.empty() || std::any_of(prefixes.begin(), prefixes.end(),
                                           [&](const auto& one) { return isBelow(path, one); });
}

/// A place among the few that watchers have.
class WatcherPlace {
public:
    explicit WatcherPlace(std::atomic<int>& watchers)
        : watchers_(watchers), granted_(watchers_.fetch_add(1) < kMostWatchers) {}
    ~WatcherPlace() { --watchers_; }
    WatcherPlace(const WatcherPlace&) = delete;
    WatcherPlace& operator=(const WatcherPlace&) = delete;

    bool isGranted() const { return granted_; }

private:
    std::atomic<int>& watchers_;
    const bool granted_;
};

}  // namespace

Status ControlService::List(ServerContext* /*context*/, const vesk::control::ListRequest* request,
                            vesk::control::ListReply* reply) {
    for (const NodeInfo& node : tree_.list())
        if (isBelow(node.path.toString().toStdString(), request->prefix()))
            *reply->add_nodes() = nodeMessage(node, ValueDetail::LongListsShortened);
    return Status::OK;
}

Status ControlService::Get(ServerContext* /*context*/, const vesk::control::GetRequest* request,
                           Node* reply) {
    const auto node = tree_.info(pathOf(request->path()));
    if (!node)
        return unknownPath(request->path());
    *reply = nodeMessage(*node);
    return Status::OK;
}

Status ControlService::Set(ServerContext* context, const vesk::control::SetRequest* request,
                           vesk::control::SetReply* /*reply*/) {
    const auto node = tree_.info(pathOf(request->path()));
    if (!node)
        return unknownPath(request->path());
    if (node->kind != NodeKind::Value)
        return {StatusCode::FAILED_PRECONDITION, "\"" + request->path() + "\" has no value to set"};
    const auto answer = CMReply<QVariant>::create();
    try {
        tree_.write(node->path, valueFor(*node, *request), answer);
    } catch (const ValueError& error) {
        return {StatusCode::INVALID_ARGUMENT, error.what()};
    }
    return await(context, answer, request->path());
}

Status ControlService::Invoke(ServerContext* context, const vesk::control::InvokeRequest* request,
                              vesk::control::InvokeReply* reply) {
    const CMPath path = pathOf(request->path());
    const auto node = tree_.info(path);
    if (!node)
        return unknownPath(request->path());
    const auto answer = CMReply<QVariant>::create();
    try {
        const std::string& arguments = request->arguments();
        tree_.invoke(path, VeskHash(argumentsFromText(arguments.empty() ? "{}" : arguments)),
                     answer);
    } catch (const ValueError& error) {
        return {StatusCode::INVALID_ARGUMENT, error.what()};
    }
    const Status status = await(context, answer, request->path());
    if (status.ok())
        reply->set_json(variantToJson(answer.value()).dump());
    return status;
}

Status ControlService::Watch(ServerContext* context, const vesk::control::WatchRequest* request,
                             grpc::ServerWriter<Node>* writer) {
    const WatcherPlace place(watchers_);
    if (!place.isGranted())
        return {StatusCode::RESOURCE_EXHAUSTED, "too many watchers"};

    WatchQueue queue;
    const auto subscription = tree_.subscribeAll([&](const platform::Change& change) {
        if (isBelowAny(change.path.toString().toStdString(), request->prefixes()))
            queue.push(change);
    });
    writer->SendInitialMetadata();
    if (request->present() && !writePresent(*request, writer))
        return Status::CANCELLED;

    while (!hasEnded(context)) {
        const auto change = queue.pop(kBetweenLooks);
        if (queue.hasOverflowed())
            return {StatusCode::RESOURCE_EXHAUSTED, "the watcher has fallen too far behind"};
        if (change && !writer->Write(changeMessage(*change)))
            return Status::CANCELLED;
    }
    return stopping_ ? Status(StatusCode::UNAVAILABLE, "the device ends") : Status::CANCELLED;
}

bool ControlService::writePresent(const vesk::control::WatchRequest& request,
                                  grpc::ServerWriter<Node>* writer) const {
    const auto nodes = tree_.list();
    return std::all_of(nodes.begin(), nodes.end(), [&](const NodeInfo& node) {
        const bool wanted = node.kind != NodeKind::Action &&
                            isBelowAny(node.path.toString().toStdString(), request.prefixes());
        return !wanted || writer->Write(nodeMessage(node));
    });
}

VeskValue ControlService::valueFor(const NodeInfo& node,
                                   const vesk::control::SetRequest& request) const {
    const VeskValue choice = choiceTitled(node.choices, request.text());
    if (!choice.isEmpty())
        return choice;
    const std::string present = valueType(node.value);
    if (!present.empty() && !request.type().empty() && present != request.type())
        throw ValueError("the node holds a value of type " + present + ", not " + request.type());
    if (!present.empty())
        return valueFromText(present, request.text());
    return valueFromText(request.type().empty() ? guessedType(request.text()) : request.type(),
                         request.text());
}

/// The value of the row with this title; empty when there is none.
VeskValue ControlService::choiceTitled(const CMPath& choices, const std::string& title) const {
    const auto rows = choices.isEmpty() ? std::nullopt : tree_.info(choices);
    if (!rows)
        return {};
    VeskValue found;
    for (const QVariant& entry : rows->rows) {
        const VeskRoles row(entry);
        if (row.title().text().toStdString() != title)
            continue;
        if (!found.isEmpty())
            throw ValueError("more than one choice is called \"" + title + "\": give its value");
        found = row.value();
    }
    return found;
}

Status ControlService::await(ServerContext* context, const CMReply<QVariant>& answer,
                             const std::string& path) const {
    const auto deadline = std::chrono::steady_clock::now() + kAnswerTime;
    while (!answer.waitForFinished(static_cast<unsigned long>(kBetweenLooks.count()))) {
        if (hasEnded(context))
            return {StatusCode::CANCELLED, "ended before \"" + path + "\" answered"};
        if (std::chrono::steady_clock::now() > deadline)
            return {StatusCode::DEADLINE_EXCEEDED, "\"" + path + "\" does not answer"};
    }
    const CMError error = answer.error();
    return error.isError() ? Status(StatusCode::FAILED_PRECONDITION, wordsOf(error)) : Status::OK;
}

bool ControlService::hasEnded(ServerContext* context) const {
    return stopping_ || context->IsCancelled();
}

}  // namespace host
