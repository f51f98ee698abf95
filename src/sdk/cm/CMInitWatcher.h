#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/records/VeskValue.h"

#include <QObject>

#include <functional>
#include <memory>

/// Follows the value of one path. Made by CMInitWatcher::newCMValueItem() and owned by the watcher.
///
/// The value that the path has at registration is taken over silently; from then on each change is
/// reported in the item's thread, in order. An item that is behind skips to the newest value, and
/// `oldValue` is then the value that it reported last. Only the player's data path reports every
/// transition.
class CMValueItem : public QObject {
    Q_OBJECT

public:
    ~CMValueItem() override;

    const CMPath& path() const;

    /// The value that the item took over or reported last; empty before the first. Any thread.
    VeskValue value() const;

    bool hasValue() const;

Q_SIGNALS:
    void changed(const VeskValue& newValue, const VeskValue& oldValue);

protected:
    bool event(QEvent* event) override;

private:
    friend class CMInitWatcher;
    class Private;

    CMValueItem(CMPath path, QObject* watcher);

    const std::unique_ptr<Private> private_;
};

/// Tells when all of a set of paths have a value. Lives in its parent's thread.
class CMInitWatcher : public QObject {
    Q_OBJECT

public:
    CMInitWatcher(QObject* parent, const QString& name);
    ~CMInitWatcher() override;

    /// Registers `path`. `created` is called with the new item at once, to connect its signal.
    CMValueItem* newCMValueItem(const CMPath& path, std::function<void(CMValueItem*)>&& created);

Q_SIGNALS:
    /// Emitted once, from the event loop, when every registered path has a value.
    void done();

protected:
    bool event(QEvent* event) override;

private:
    class Private;

    const std::unique_ptr<Private> private_;
};
