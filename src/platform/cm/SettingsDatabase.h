#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/records/VeskValue.h"

#include <QHash>

#include <memory>
#include <stdexcept>
#include <string>

namespace platform {

/// Values by path.
using Settings = QHash<CMPath, VeskValue>;

/// The file is not a settings database, or not one that can be read completely.
class DamagedDatabase : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The SQLite file with the settings: one row a path, the value as CBOR, in write-ahead mode. One
/// thread at a time.
class SettingsDatabase {
public:
    /// Opens the file or makes a new one, which is written to with the first store(). Throws
    /// DamagedDatabase, or another std::exception when the file cannot be used.
    explicit SettingsDatabase(const std::string& file);
    ~SettingsDatabase();
    SettingsDatabase(const SettingsDatabase&) = delete;
    SettingsDatabase& operator=(const SettingsDatabase&) = delete;

    /// What was stored when the file was opened; the caller's from now on.
    Settings takeContent();

    /// Replaces the rows of all these paths at once; durable when it returns. Throws
    /// std::exception and changes nothing when it cannot.
    void store(const QHash<CMPath, QByteArray>& rows);

private:
    class Private;
    const std::unique_ptr<Private> private_;
};

}  // namespace platform
