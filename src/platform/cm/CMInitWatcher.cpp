#include "sdk/cm/CMInitWatcher.h"

#include "platform/cm/CurrentTree.h"

#include <QCoreApplication>
#include <QEvent>

#include <algorithm>
#include <deque>
#include <mutex>

namespace {

/// There is a change to report.
QEvent::Type changeEvent() {
    static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
    return type;
}

/// One more item may have a value.
QEvent::Type checkEvent() {
    static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
    return type;
}

}  // namespace

class CMValueItem::Private {
public:
    Private(CMPath path, CMValueItem* item) : path_(std::move(path)), item_(item) {
        std::optional<VeskValue> present;
        subscription_ = platform::currentTree()->subscribe(
            path_, [this](const platform::Change& change) { take(change); }, &present);
        // A change that arrives from here on is reported by the event loop of this thread, later.
        const std::lock_guard lock(mutex_);
        reported_ = std::move(present);
    }

    const CMPath& path() const { return path_; }

    std::optional<VeskValue> reported() const {
        const std::lock_guard lock(mutex_);
        return reported_;
    }

    /// Makes the next change the reported one. Returns what was reported before it.
    std::optional<VeskValue> advance() {
        const std::lock_guard lock(mutex_);
        auto before = std::exchange(reported_, std::move(waiting_.front()));
        waiting_.pop_front();
        return before;
    }

private:
    /// For each change that waits one event is on its way. In the thread that changes the tree.
    void take(const platform::Change& change) {
        {
            const std::lock_guard lock(mutex_);
            const bool behind = !waiting_.empty();
            if (behind && !change.everyTransition) {
                waiting_.back() = change.value;
                return;
            }
            waiting_.push_back(change.value);
        }
        QCoreApplication::postEvent(item_, new QEvent(changeEvent()));
    }

    const CMPath path_;
    CMValueItem* const item_;

    mutable std::mutex mutex_;
    std::optional<VeskValue> reported_;  // guarded by mutex_
    std::deque<VeskValue> waiting_;      // guarded by mutex_

    platform::Subscription subscription_;  // last: ends before the rest
};

CMValueItem::CMValueItem(CMPath path, QObject* watcher)
    : QObject(watcher), private_(std::make_unique<Private>(std::move(path), this)) {
}

CMValueItem::~CMValueItem() = default;

const CMPath& CMValueItem::path() const {
    return private_->path();
}

VeskValue CMValueItem::value() const {
    return private_->reported().value_or(VeskValue());
}

bool CMValueItem::hasValue() const {
    return private_->reported().has_value();
}

bool CMValueItem::event(QEvent* event) {
    if (event->type() != changeEvent())
        return QObject::event(event);
    const auto before = private_->advance();
    if (!before)
        QCoreApplication::postEvent(parent(), new QEvent(checkEvent()));
    const VeskValue oldValue = before.value_or(VeskValue());
    const VeskValue newValue = value();
    if (newValue != oldValue)
        Q_EMIT changed(newValue, oldValue);
    return true;
}

class CMInitWatcher::Private {
public:
    bool done{false};
};

CMInitWatcher::CMInitWatcher(QObject* parent, const QString& name)
    : QObject(parent), private_(std::make_unique<Private>()) {
    setObjectName(name);
}

CMInitWatcher::~CMInitWatcher() = default;

CMValueItem* CMInitWatcher::newCMValueItem(const CMPath& path,
                                           std::function<void(CMValueItem*)>&& created) {
    auto* const item = new CMValueItem(path, this);
    if (created)
        created(item);
    QCoreApplication::postEvent(this, new QEvent(checkEvent()));
    return item;
}

bool CMInitWatcher::event(QEvent* event) {
    if (event->type() != checkEvent())
        return QObject::event(event);
    const auto items = findChildren<CMValueItem*>(QString(), Qt::FindDirectChildrenOnly);
    const bool complete = std::all_of(items.begin(), items.end(),
                                      [](const CMValueItem* item) { return item->hasValue(); });
    if (complete && !std::exchange(private_->done, true))
        Q_EMIT done();
    return true;
}
