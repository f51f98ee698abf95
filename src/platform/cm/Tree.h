#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/cm/CMReply.h"
#include "sdk/records/VeskValue.h"

#include <QVariantList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace platform {

class WorkerMailbox;

/// A value that the device itself provides: no worker serves it.
struct ProvidedValue {
    CMPath path;
    VeskValue initial;       ///< empty: no value until somebody writes one
    bool persistent{false};  ///< kept in the settings store; a stored value wins over `initial`
    bool everyTransition{false};  ///< watchers see each change instead of skipping to the newest
};

/// What a node is, for tools.
enum class NodeKind { Value, Rows, Action };

/// A node as it stands, for tools.
struct NodeInfo {
    CMPath path;
    NodeKind kind{NodeKind::Value};
    VeskValue value;    ///< of a value node
    QVariantList rows;  ///< of a rows node: VeskRoles
    QString title;      ///< empty: none
    CMPath choices;     ///< rows to choose the value from; empty: free
    QString worker;     ///< name of the worker that serves it; empty: the platform
    bool persistent{false};
};

/// The new content of a node.
struct Change {
    CMPath path;
    NodeKind kind{NodeKind::Value};
    VeskValue value;              ///< of a value node
    QVariantList rows;            ///< of a rows node: VeskRoles
    bool everyTransition{false};  ///< of the node, see ProvidedValue
};

/// Keeps a callback of the tree alive; may outlive the tree. Its end waits for a call of the
/// callback that runs in another thread, and after it the callback is not called any more.
class Subscription {
public:
    Subscription();
    ~Subscription();
    Subscription(Subscription&& other) noexcept;
    Subscription& operator=(Subscription&& other) noexcept;

    /// Ends it now.
    void reset();

private:
    friend class Tree;
    class Private;

    explicit Subscription(std::unique_ptr<Private> subscription);

    std::unique_ptr<Private> private_;
};

/// The configuration tree of one device: all nodes, by path. All operations may be called from any
/// thread, and none of them waits for another thread's event loop.
class Tree {
public:
    /// Called with each change, one at a time and in the order of the changes, in a thread that is
    /// just changing the tree. It may use the tree; what it changes itself is reported after it
    /// has returned. It must be quick and must not throw.
    using Callback = std::function<void(const Change&)>;

    Tree();
    ~Tree();
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    /// Adds a value of the device itself. Throws std::runtime_error when the path is taken.
    void provide(const ProvidedValue& provided);

    // Clients.

    /// The node's value; none when the path is unknown, has no value yet, or has rows or an action.
    std::optional<VeskValue> read(const CMPath& path) const;

    /// A value of the device is changed when this returns; a worker's node is changed later, in its
    /// worker's thread. Answers `reply` with true, or with an error whose name says what is wrong:
    /// "UnknownPath", "NotAValue", or what the node's validator answers.
    void write(const CMPath& path, const VeskValue& value, const CMReply<QVariant>& reply);

    /// Activates an action in its worker's thread. Errors: "UnknownPath", "NotAnAction", or what
    /// the action answers.
    void invoke(const CMPath& path, const VeskHash& arguments, const CMReply<QVariant>& reply);

    // Watchers.

    /// Follows one path, known or not. `present`, when given, receives the value from which the
    /// reported changes go on; none when there is no value yet.
    [[nodiscard]] Subscription subscribe(const CMPath& path, Callback callback,
                                         std::optional<VeskValue>* present = nullptr);

    /// Follows all paths.
    [[nodiscard]] Subscription subscribeAll(Callback callback);

    /// Waits until every change made before has been reported; false when that takes longer than
    /// `timeout`. Not for callbacks.
    bool waitUntilReported(std::chrono::milliseconds timeout) const;

    // Storage.

    /// Waits at most so long until all persistent values that were reported are stored.
    using Storage = std::function<bool(std::chrono::milliseconds timeout)>;

    /// Says who stores the persistent values. Before the tree has clients.
    void setStorage(Storage storage);

    /// Waits until every change of a persistent value made before is stored; false when that takes
    /// longer than `timeout` or cannot be done at present. True at once when nothing is to be
    /// stored, and when the thread has set no value since its last call: whoever only reads neither
    /// waits for another's changes nor has half of them stored.
    bool waitUntilStored(std::chrono::milliseconds timeout) const;

    // Tools.

    std::vector<NodeInfo> list() const;  ///< all nodes, ordered by path
    std::optional<NodeInfo> info(const CMPath& path) const;
    /// The paths that somebody follows and that have no value, in order.
    std::vector<CMPath> watchedWithoutValue() const;

    // Workers, for their own nodes.

    /// Adds a worker's node; a value node's value is known and empty. Throws std::runtime_error
    /// when the path is taken.
    void addNode(const CMPath& path, NodeKind kind, std::shared_ptr<WorkerMailbox> worker);
    void removeNode(const CMPath& path);
    void publish(const CMPath& path, const VeskValue& value);
    void publishRows(const CMPath& path, const QVariantList& rows);
    void setTitle(const CMPath& path, const QString& title);
    /// Where the rows are that a value is chosen from.
    void setChoices(const CMPath& path, const CMPath& choices);

private:
    friend class Subscription;
    class Private;

    const std::shared_ptr<Private> private_;
};

}  // namespace platform
