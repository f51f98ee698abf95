#include "platform/cm/SettingsDatabase.h"

#include "platform/cm/SettingsCodec.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

namespace platform {

namespace {

/// Of the schema, in the file's user_version.
constexpr int kVersion = 1;

[[noreturn]] void damaged(const std::string& reason) {
    throw DamagedDatabase(reason);
}

/// Whether the error lies in the file's content rather than in the disk or the system.
bool meansDamage(int error) {
    return error == SQLITE_NOTADB || error == SQLITE_CORRUPT || error == SQLITE_ERROR;
}

QByteArray blob(const SQLite::Column& column) {
    return {static_cast<const char*>(column.getBlob()), column.getBytes()};
}

}  // namespace

class SettingsDatabase::Private {
public:
    explicit Private(const std::string& file)
        : database_(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE) {
        try {
            keepWriteAheadLog(true);  // should the file be moved aside, then as it was found
            database_.exec("PRAGMA locking_mode=EXCLUSIVE");  // needs no shared-memory file
            database_.exec("PRAGMA synchronous=FULL");
            readAll();
            keepWriteAheadLog(false);
        } catch (const SQLite::Exception& error) {
            if (meansDamage(error.getErrorCode()))
                damaged(error.what());
            throw;
        }
    }

    Settings takeContent() { return std::exchange(content_, {}); }

    void store(const QHash<CMPath, QByteArray>& rows) {
        try {
            prepareForWriting();
            replace(rows);
        } catch (const SQLite::Exception& error) {
            throw std::runtime_error(
                error.what() + (" (SQLite error " + std::to_string(error.getExtendedErrorCode())) +
                ")");
        }
    }

private:
    void replace(const QHash<CMPath, QByteArray>& rows) {
        SQLite::Transaction transaction(database_);
        SQLite::Statement statement(database_,
                                    "INSERT INTO settings(path, value) VALUES(?, ?) "
                                    "ON CONFLICT(path) DO UPDATE SET value = excluded.value");
        for (auto row = rows.cbegin(); row != rows.cend(); ++row) {
            statement.bind(1, row.key().toString().toStdString());
            statement.bindNoCopy(2, row.value().constData(), row.value().size());
            statement.exec();
            statement.reset();
        }
        transaction.commit();
    }

    void keepWriteAheadLog(bool keep) {
        sqlite3_db_config(database_.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, keep ? 1 : 0,
                          nullptr);
    }

    void readAll() {
        const std::string check = database_.execAndGet("PRAGMA quick_check(1)").getString();
        if (check != "ok")
            damaged(check);
        const int version = database_.execAndGet("PRAGMA user_version").getInt();
        const int tables = database_.execAndGet("SELECT count(*) FROM sqlite_master").getInt();
        if (version == 0 && tables == 0)
            return;
        if (version != kVersion)
            damaged("its schema version is " + std::to_string(version));
        SQLite::Statement rows(database_, "SELECT path, value FROM settings");
        while (rows.executeStep())
            readRow(rows.getColumn(0).getString(), blob(rows.getColumn(1)));
    }

    void readRow(const std::string& path, const QByteArray& bytes) {
        try {
            content_.insert(CMPath(QString::fromStdString(path)), decodeSetting(bytes));
        } catch (const std::exception& error) {
            damaged("the value of " + path + " cannot be read: " + error.what());
        }
    }

    /// Late, so that a device with a full disk starts and retries.
    void prepareForWriting() {
        if (prepared_)
            return;
        database_.execAndGet("PRAGMA journal_mode=WAL");
        SQLite::Transaction transaction(database_);
        database_.exec(
            "CREATE TABLE IF NOT EXISTS settings"
            "(path TEXT PRIMARY KEY NOT NULL, value BLOB NOT NULL)");
        database_.exec("PRAGMA user_version=" + std::to_string(kVersion));
        transaction.commit();
        prepared_ = true;
    }

    SQLite::Database database_;
    Settings content_;
    bool prepared_{false};
};

SettingsDatabase::SettingsDatabase(const std::string& file)
    : private_(std::make_unique<Private>(file)) {
}

SettingsDatabase::~SettingsDatabase() = default;

Settings SettingsDatabase::takeContent() {
    return private_->takeContent();
}

void SettingsDatabase::store(const QHash<CMPath, QByteArray>& rows) {
    private_->store(rows);
}

}  // namespace platform
