#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/records/VeskValue.h"

#include <QString>

#include <chrono>
#include <memory>
#include <optional>

namespace platform {

/// The persistent values of the configuration tree, in "settings.sqlite" of the state directory.
///
/// Writes are encoded and stored by a thread of the store, in groups: on disk at most 100 ms after
/// write() unless the disk is slower, and when the store is destroyed. What is on disk is at any
/// moment the state after some earlier write. A write that fails (a full disk, a file that can only
/// be read) is logged and tried again until it succeeds.
class SettingsStore {
public:
    /// Makes the directory when it is missing and reads what is stored. A damaged file is logged
    /// and moved aside to "settings.sqlite.damaged-<n>"; the store is then empty. Throws
    /// std::runtime_error when the directory cannot be read or another process uses it.
    explicit SettingsStore(const QString& directory);

    /// Stores what is not yet stored.
    ~SettingsStore();

    SettingsStore(const SettingsStore&) = delete;
    SettingsStore& operator=(const SettingsStore&) = delete;

    /// The value that was stored when the store was opened; the caller's from now on. Only in the
    /// thread that made the store.
    std::optional<VeskValue> take(const CMPath& path);

    /// Keeps a new value. Any thread; returns at once.
    void write(const CMPath& path, const VeskValue& value);

    /// Waits until every value kept before is on disk; does not wait for others to join them.
    /// False when that takes longer than `timeout` or cannot be done at present. Any thread.
    bool waitUntilStored(std::chrono::milliseconds timeout);

private:
    class Private;
    const std::unique_ptr<Private> private_;
};

}  // namespace platform
