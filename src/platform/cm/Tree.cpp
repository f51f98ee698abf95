#include "platform/cm/Tree.h"

#include "platform/Log.h"
#include "platform/cm/Follower.h"
#include "platform/cm/WorkerMailbox.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>

namespace platform {

namespace {

struct Node {
    NodeKind kind{NodeKind::Value};
    bool hasValue{false};
    VeskValue value;
    QVariantList rows;
    QString title;
    CMPath choices;
    bool persistent{false};
    bool everyTransition{false};
    std::shared_ptr<WorkerMailbox> worker;  // null: the platform
    ChangeNumber lastChange{0};
};

NodeInfo describe(const CMPath& path, const Node& node) {
    return {path,
            node.kind,
            node.value,
            node.rows,
            node.title,
            node.choices,
            node.worker ? node.worker->workerName() : QString(),
            node.persistent};
}

void refuse(const CMReply<QVariant>& reply, const char* name, const char* text,
            const CMPath& path) {
    const QString message = QLatin1String(text) + QLatin1String(": ") + path.toString();
    LOG4CPLUS_WARN(logger, message.toStdString());
    reply.setError(CMError(QLatin1String(name), message));
}

void refuseUnknown(const CMReply<QVariant>& reply, const CMPath& path) {
    refuse(reply, "UnknownPath", "No such path", path);
}

void post(WorkerMailbox& worker, const CMPath& path, const VeskValue& value,
          const CMReply<QVariant>& reply) {
    const CMError unanswered(QStringLiteral("Unanswered"),
                             QStringLiteral("Nobody answered the request to ") + path.toString());
    worker.post(CMSetDataRequest(path, value, reply.promised(unanswered)));
}

/// What this thread has last set a value of and not yet waited for. Only compared.
thread_local const void* treeChangedByThread = nullptr;

}  // namespace

/// The nodes, their followers, and the changes on their way from the ones to the others.
class Tree::Private {
public:
    void add(const CMPath& path, const Node& node);
    void remove(const CMPath& path);

    /// A copy of the node; its values share their data with the tree's.
    std::optional<Node> find(const CMPath& path) const;
    std::vector<NodeInfo> list() const;
    std::vector<CMPath> watchedWithoutValue() const;

    void changeValue(const CMPath& path, const VeskValue& value);
    void changeRows(const CMPath& path, const QVariantList& rows);
    void changeDescription(const CMPath& path, const std::function<void(Node&)>& change);

    /// `present` receives the value at the path.
    std::shared_ptr<Follower> follow(const CMPath& path, Callback callback,
                                     std::optional<VeskValue>* present);
    std::shared_ptr<Follower> followAll(Callback callback);
    void unfollow(const std::shared_ptr<Follower>& follower);

    bool waitUntilReported(std::chrono::milliseconds timeout) const;
    bool takeOwnChange() const;

    Storage storage;  // constant once the tree has clients

private:
    struct Delivery {
        Change change;
        ChangeNumber number{0};
        Followers audience;
    };

    bool replaceValue(const CMPath& path, const VeskValue& value, ChangeNumber expected);
    void queueChange(const CMPath& path, Node& node);
    void deliver() noexcept;
    bool beginDelivery();
    std::optional<Delivery> nextDelivery();
    std::optional<VeskValue> valueLocked(const CMPath& path) const;
    Followers audienceLocked(const CMPath& path, ChangeNumber change) const;

    mutable std::mutex mutex_;  // guards all below; never held during a callback or a comparison
    mutable std::condition_variable progress_;  // of reported_
    std::map<CMPath, Node> nodes_;
    Followers followers_;
    ChangeNumber lastChange_{0};
    ChangeNumber reported_{0};  // up to this change every follower has been called
    std::deque<Delivery> undelivered_;
    bool delivering_{false};
};

void Tree::Private::add(const CMPath& path, const Node& node) {
    {
        const std::lock_guard lock(mutex_);
        const auto [entry, added] = nodes_.try_emplace(path, node);
        if (!added)
            throw std::runtime_error("The configuration tree already has a node at " +
                                     path.toString().toStdString());
        if (entry->second.hasValue)
            queueChange(path, entry->second);
    }
    deliver();
}

void Tree::Private::remove(const CMPath& path) {
    Node removed;  // destroyed without the lock
    const std::lock_guard lock(mutex_);
    if (auto node = nodes_.extract(path))
        removed = std::move(node.mapped());
}

std::optional<Node> Tree::Private::find(const CMPath& path) const {
    const std::lock_guard lock(mutex_);
    const auto entry = nodes_.find(path);
    return entry == nodes_.end() ? std::nullopt : std::optional(entry->second);
}

std::vector<NodeInfo> Tree::Private::list() const {
    std::vector<NodeInfo> infos;
    const std::lock_guard lock(mutex_);
    infos.reserve(nodes_.size());
    for (const auto& [path, node] : nodes_)
        infos.push_back(describe(path, node));
    return infos;
}

std::vector<CMPath> Tree::Private::watchedWithoutValue() const {
    std::set<CMPath> paths;
    const std::lock_guard lock(mutex_);
    for (const auto& follower : followers_)
        if (!follower->followsAll() && !valueLocked(follower->path()))
            paths.insert(follower->path());
    return {paths.begin(), paths.end()};
}

/// Whether the thread has changed the tree, or has tried to, since it was asked last.
bool Tree::Private::takeOwnChange() const {
    return std::exchange(treeChangedByThread, nullptr) == this;
}

/// Compares without the lock, because comparing large values takes time, and begins anew when
/// another thread has changed the node meanwhile.
void Tree::Private::changeValue(const CMPath& path, const VeskValue& value) {
    treeChangedByThread = this;
    for (;;) {
        const auto node = find(path);
        if (!node || (node->hasValue && node->value == value))
            return;
        if (replaceValue(path, value, node->lastChange))
            return deliver();
    }
}

/// The caller's copy of the node keeps the old value, so that it is not destroyed under the lock.
bool Tree::Private::replaceValue(const CMPath& path, const VeskValue& value,
                                 ChangeNumber expected) {
    const std::lock_guard lock(mutex_);
    const auto entry = nodes_.find(path);
    if (entry == nodes_.end() || entry->second.lastChange != expected)
        return false;
    entry->second.value = value;
    entry->second.hasValue = true;
    queueChange(path, entry->second);
    return true;
}

void Tree::Private::changeRows(const CMPath& path, const QVariantList& rows) {
    {
        const std::lock_guard lock(mutex_);
        const auto entry = nodes_.find(path);
        if (entry == nodes_.end() || entry->second.rows == rows)
            return;
        entry->second.rows = rows;
        queueChange(path, entry->second);
    }
    deliver();
}

void Tree::Private::changeDescription(const CMPath& path,
                                      const std::function<void(Node&)>& change) {
    const std::lock_guard lock(mutex_);
    if (const auto entry = nodes_.find(path); entry != nodes_.end())
        change(entry->second);
}

std::shared_ptr<Follower> Tree::Private::follow(const CMPath& path, Callback callback,
                                                std::optional<VeskValue>* present) {
    const std::lock_guard lock(mutex_);
    followers_.push_back(std::make_shared<Follower>(std::move(callback), lastChange_, path));
    if (present)
        *present = valueLocked(path);
    return followers_.back();
}

std::shared_ptr<Follower> Tree::Private::followAll(Callback callback) {
    const std::lock_guard lock(mutex_);
    followers_.push_back(std::make_shared<Follower>(std::move(callback), lastChange_));
    return followers_.back();
}

void Tree::Private::unfollow(const std::shared_ptr<Follower>& follower) {
    const std::lock_guard lock(mutex_);
    std::erase(followers_, follower);
}

std::optional<VeskValue> Tree::Private::valueLocked(const CMPath& path) const {
    const auto entry = nodes_.find(path);
    const bool hasValue = entry != nodes_.end() && entry->second.hasValue;
    return hasValue ? std::optional(entry->second.value) : std::nullopt;
}

Followers Tree::Private::audienceLocked(const CMPath& path, ChangeNumber change) const {
    Followers audience;
    std::copy_if(followers_.begin(), followers_.end(), std::back_inserter(audience),
                 [&](const auto& follower) { return follower->wants(path, change); });
    return audience;
}

void Tree::Private::queueChange(const CMPath& path, Node& node) {
    node.lastChange = ++lastChange_;
    undelivered_.push_back(
        {{path, node.kind, node.value, node.rows, node.everyTransition}, node.lastChange, {}});
}

/// One thread at a time delivers, also what others change meanwhile: so changes are reported in
/// their order, and a callback that changes the tree does not wait for itself.
void Tree::Private::deliver() noexcept {
    if (!beginDelivery())
        return;
    while (const auto delivery = nextDelivery())
        for (const auto& follower : delivery->audience)
            follower->call(delivery->change);
}

bool Tree::Private::beginDelivery() {
    const std::lock_guard lock(mutex_);
    return !std::exchange(delivering_, true);
}

std::optional<Tree::Private::Delivery> Tree::Private::nextDelivery() {
    const std::lock_guard lock(mutex_);
    reported_ = undelivered_.empty() ? lastChange_ : undelivered_.front().number - 1;
    progress_.notify_all();
    if (undelivered_.empty()) {
        delivering_ = false;
        return std::nullopt;
    }
    Delivery next = std::move(undelivered_.front());
    undelivered_.pop_front();
    next.audience = audienceLocked(next.change.path, next.number);
    return next;
}

bool Tree::Private::waitUntilReported(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    const ChangeNumber wanted = lastChange_;
    return progress_.wait_for(lock, timeout, [this, wanted] { return reported_ >= wanted; });
}

class Subscription::Private {
public:
    Private(std::weak_ptr<Tree::Private> tree, std::shared_ptr<Follower> follower)
        : tree_(std::move(tree)), follower_(std::move(follower)) {}

    ~Private() {
        if (const auto tree = tree_.lock())
            tree->unfollow(follower_);
        follower_->end();
    }

    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;

private:
    const std::weak_ptr<Tree::Private> tree_;
    const std::shared_ptr<Follower> follower_;
};

Subscription::Subscription() = default;
Subscription::Subscription(std::unique_ptr<Private> subscription)
    : private_(std::move(subscription)) {
}
Subscription::~Subscription() = default;
Subscription::Subscription(Subscription&& other) noexcept = default;
Subscription& Subscription::operator=(Subscription&& other) noexcept = default;

void Subscription::reset() {
    private_.reset();
}

Tree::Tree() : private_(std::make_shared<Private>()) {
}

Tree::~Tree() = default;

void Tree::provide(const ProvidedValue& provided) {
    Node node;
    node.hasValue = !provided.initial.isEmpty();
    node.value = provided.initial;
    node.persistent = provided.persistent;
    node.everyTransition = provided.everyTransition;
    private_->add(provided.path, node);
}

std::optional<VeskValue> Tree::read(const CMPath& path) const {
    const auto node = private_->find(path);
    return node && node->hasValue ? std::optional(node->value) : std::nullopt;
}

void Tree::write(const CMPath& path, const VeskValue& value, const CMReply<QVariant>& reply) {
    const auto node = private_->find(path);
    if (!node)
        return refuseUnknown(reply, path);
    if (node->kind == NodeKind::Action)
        return refuse(reply, "NotAValue", "An action has no value", path);
    if (node->worker)
        return post(*node->worker, path, value, reply);
    private_->changeValue(path, value);
    reply.setValue(true);
}

void Tree::invoke(const CMPath& path, const VeskHash& arguments, const CMReply<QVariant>& reply) {
    const auto node = private_->find(path);
    if (!node)
        return refuseUnknown(reply, path);
    if (node->kind != NodeKind::Action)
        return refuse(reply, "NotAnAction", "Not an action", path);
    post(*node->worker, path, VeskValue(arguments.hash()), reply);
}

Subscription Tree::subscribe(const CMPath& path, Callback callback,
                             std::optional<VeskValue>* present) {
    return Subscription(std::make_unique<Subscription::Private>(
        private_, private_->follow(path, std::move(callback), present)));
}

Subscription Tree::subscribeAll(Callback callback) {
    return Subscription(std::make_unique<Subscription::Private>(
        private_, private_->followAll(std::move(callback))));
}

std::vector<NodeInfo> Tree::list() const {
    return private_->list();
}

std::optional<NodeInfo> Tree::info(const CMPath& path) const {
    const auto node = private_->find(path);
    return node ? std::optional(describe(path, *node)) : std::nullopt;
}

std::vector<CMPath> Tree::watchedWithoutValue() const {
    return private_->watchedWithoutValue();
}

bool Tree::waitUntilReported(std::chrono::milliseconds timeout) const {
    return private_->waitUntilReported(timeout);
}

void Tree::setStorage(Storage storage) {
    private_->storage = std::move(storage);
}

bool Tree::waitUntilStored(std::chrono::milliseconds timeout) const {
    if (!private_->storage || !private_->takeOwnChange())
        return true;
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + timeout;
    if (!waitUntilReported(timeout))
        return false;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    return private_->storage(std::max(left, std::chrono::milliseconds(0)));
}

void Tree::addNode(const CMPath& path, NodeKind kind, std::shared_ptr<WorkerMailbox> worker) {
    Node node;
    node.kind = kind;
    node.hasValue = kind == NodeKind::Value;
    node.worker = std::move(worker);
    private_->add(path, node);
}

void Tree::removeNode(const CMPath& path) {
    private_->remove(path);
}

void Tree::publish(const CMPath& path, const VeskValue& value) {
    private_->changeValue(path, value);
}

void Tree::publishRows(const CMPath& path, const QVariantList& rows) {
    private_->changeRows(path, rows);
}

void Tree::setTitle(const CMPath& path, const QString& title) {
    private_->changeDescription(path, [&title](Node& node) { node.title = title; });
}

void Tree::setChoices(const CMPath& path, const CMPath& choices) {
    private_->changeDescription(path, [&choices](Node& node) { node.choices = choices; });
}

}  // namespace platform
