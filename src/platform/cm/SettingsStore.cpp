#include "platform/cm/SettingsStore.h"

#include "platform/Log.h"
#include "platform/cm/DirectoryLock.h"
#include "platform/cm/SettingsCodec.h"
#include "platform/cm/SettingsDatabase.h"

#include <QFile>
#include <QTemporaryDir>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <thread>

namespace platform {

namespace {

namespace fs = std::filesystem;

/// A write waits this long for others that belong to it, unless somebody waits for the disk.
constexpr std::chrono::milliseconds kGather{50};
/// Between two attempts to store what could not be stored.
constexpr std::chrono::seconds kRetry{1};

std::string makeDirectory(const QString& directory) {
    std::string path = QFile::encodeName(directory).toStdString();
    std::error_code error;
    fs::create_directories(path, error);
    if (error)
        throw std::runtime_error("Cannot make the state directory " + path + ": " +
                                 error.message());
    return path;
}

fs::path freeName(const fs::path& file) {
    for (int number = 1;; ++number) {
        fs::path candidate = file.string() + ".damaged-" + std::to_string(number);
        if (!fs::exists(fs::symlink_status(candidate)))
            return candidate;
    }
}

/// Together with SQLite's files beside it, so that nothing is lost for a repair by hand.
void moveAside(const fs::path& file, const std::string& reason) {
    const fs::path aside = freeName(file);
    fs::rename(file, aside);
    for (const char* suffix : {"-wal", "-shm", "-journal"}) {
        std::error_code none;  // most often there is no such file
        fs::rename(file.string() + suffix, aside.string() + suffix, none);
    }
    LOG4CPLUS_ERROR(logger, "The settings in " << file.string() << " are damaged (" << reason
                                               << "). They are moved to " << aside.string()
                                               << " and the device starts with its initial values");
}

/// The settings of a file that can only be read: SQLite wants to write even then.
Settings readCopy(const fs::path& file) {
    const QTemporaryDir directory;
    const fs::path copy =
        fs::path(QFile::encodeName(directory.path()).toStdString()) / file.filename();
    for (const char* suffix : {"", "-wal"})
        if (fs::exists(file.string() + suffix)) {
            fs::copy_file(file.string() + suffix, copy.string() + suffix);
            fs::permissions(copy.string() + suffix, fs::perms::owner_write, fs::perm_options::add);
        }
    return SettingsDatabase(copy).takeContent();
}

}  // namespace

class SettingsStore::Private {
public:
    explicit Private(const QString& directory)
        : directory_(makeDirectory(directory)),
          lock_(directory_),
          file_(fs::path(directory_) / "settings.sqlite"),
          database_(open()),
          writer_([this] { run(); }) {}

    ~Private() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        writer_.join();
    }

    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;

    std::optional<VeskValue> take(const CMPath& path) {
        const auto entry = stored_.find(path);
        if (entry == stored_.end())
            return std::nullopt;
        VeskValue value = std::move(*entry);
        stored_.erase(entry);
        return value;
    }

    void write(const CMPath& path, const VeskValue& value) {
        {
            const std::lock_guard lock(mutex_);
            unstored_.insert(path, value);
            ++kept_;
        }
        wake_.notify_all();
    }

    bool waitUntilStored(std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        const auto wanted = kept_;
        const auto isStored = [this, wanted] { return onDisk_ >= wanted; };
        if (isStored())
            return true;
        ++waiting_;
        wake_.notify_all();
        progress_.wait_for(lock, timeout, [&] { return isStored() || isFailing_; });
        --waiting_;
        return isStored();
    }

private:
    /// Fills `stored_`. Null: the file can be read but not written.
    std::unique_ptr<SettingsDatabase> open() {
        try {
            return openForWriting();
        } catch (const DamagedDatabase& damage) {
            moveAside(file_, damage.what());
            return openForWriting();
        } catch (const std::exception& error) {
            readOnly(error.what());
            return nullptr;
        }
    }

    std::unique_ptr<SettingsDatabase> openForWriting() {
        auto database = std::make_unique<SettingsDatabase>(file_);
        stored_ = database->takeContent();
        return database;
    }

    void readOnly(const std::string& reason) {
        try {
            stored_ = readCopy(file_);
        } catch (const std::exception& error) {
            throw std::runtime_error("Cannot read the settings in " + file_.string() + ": " +
                                     error.what());
        }
        reportFailure(reason);
    }

    // All below: in the writer thread.

    void run() {
        for (;;) {
            const Settings group = nextGroup();
            if (group.isEmpty())
                return;
            const bool stored = store(group);
            reportProgress(stored);
            if (!stored && giveUp(group))
                return;
        }
    }

    /// Waits for something to store. Empty: there is nothing, and the store ends.
    Settings nextGroup() {
        std::unique_lock lock(mutex_);
        wake_.wait(lock, [this] { return stopping_ || !unstored_.isEmpty(); });
        if (isFailing_)
            wake_.wait_for(lock, kRetry, [this] { return stopping_; });
        else
            wake_.wait_for(lock, kGather, [this] { return stopping_ || waiting_ > 0; });
        lastAttempt_ = stopping_;
        taken_ = kept_;
        return std::exchange(unstored_, {});
    }

    void reportProgress(bool stored) {
        {
            const std::lock_guard lock(mutex_);
            isFailing_ = !stored;
            if (stored)
                onDisk_ = taken_;
        }
        progress_.notify_all();
    }

    bool store(const Settings& group) {
        try {
            if (!database_)
                database_ = std::make_unique<SettingsDatabase>(file_);
            database_->store(encode(group));
            reportSuccess();
            return true;
        } catch (const std::exception& error) {
            reportFailure(error.what());
            return false;
        }
    }

    QHash<CMPath, QByteArray> encode(const Settings& group) const {
        QHash<CMPath, QByteArray> rows;
        for (auto setting = group.cbegin(); setting != group.cend(); ++setting) {
            try {
                rows.insert(setting.key(), encodeSetting(setting.value()));
            } catch (const std::exception& error) {
                LOG4CPLUS_ERROR(logger, "The value of " << setting.key().toString().toStdString()
                                                        << " is not stored in " << file_.string()
                                                        << ": " << error.what());
            }
        }
        return rows;
    }

    /// Puts the group back for the next attempt, unless there is none.
    bool giveUp(const Settings& group) {
        if (lastAttempt_) {
            LOG4CPLUS_ERROR(logger, "The device ends with " << group.size()
                                                            << " settings not stored in "
                                                            << file_.string());
            return true;
        }
        const std::lock_guard lock(mutex_);
        for (auto setting = group.cbegin(); setting != group.cend(); ++setting)
            if (!unstored_.contains(setting.key()))
                unstored_.insert(setting.key(), setting.value());
        return false;
    }

    void reportFailure(const std::string& reason) {
        if (reason != failure_)
            LOG4CPLUS_ERROR(logger, "Cannot store settings in "
                                        << file_.string() << ": " << reason
                                        << ". They are kept in memory and tried again");
        failure_ = reason;
    }

    void reportSuccess() {
        if (!failure_.empty())
            LOG4CPLUS_INFO(logger, "Settings are stored again in " << file_.string());
        failure_.clear();
    }

    // Constant after construction.
    const std::string directory_;
    const DirectoryLock lock_;
    const fs::path file_;

    // Owned by the thread that made the store.
    Settings stored_;

    // Owned by the writer thread once it runs.
    std::string failure_;  // why the last attempt failed; empty: it did not
    bool lastAttempt_{false};
    std::uint64_t taken_{0};  // of the values kept, how many are in the present group or before it
    std::unique_ptr<SettingsDatabase> database_;  // null: the file can only be read so far

    std::mutex mutex_;                  // guards all below
    std::condition_variable wake_;      // for the writer
    std::condition_variable progress_;  // for those who wait for the disk
    Settings unstored_;
    std::uint64_t kept_{0};    // values that write() has kept
    std::uint64_t onDisk_{0};  // how many of them are stored
    int waiting_{0};
    bool isFailing_{false};  // the last attempt failed
    bool stopping_{false};

    std::thread writer_;  // last: runs on the members above
};

SettingsStore::SettingsStore(const QString& directory)
    : private_(std::make_unique<Private>(directory)) {
}

SettingsStore::~SettingsStore() = default;

std::optional<VeskValue> SettingsStore::take(const CMPath& path) {
    return private_->take(path);
}

void SettingsStore::write(const CMPath& path, const VeskValue& value) {
    private_->write(path, value);
}

bool SettingsStore::waitUntilStored(std::chrono::milliseconds timeout) {
    return private_->waitUntilStored(timeout);
}

}  // namespace platform
