#include "modules/dirac/FilterFilePrecache.h"

#include "modules/dirac/ScopedTrace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <optional>

namespace {

/// What is read back at most, in bytes.
constexpr qint64 kMaximumSize = 1024;

QString directory() {
    return QStringLiteral("data-rw/dirac/");
}

QString fileName(int slotIdx, int sampleRate, qint64 creationTime) {
    return QStringLiteral("%1_%2_%3_data").arg(slotIdx).arg(sampleRate).arg(creationTime);
}

QString filePath(int slotIdx, int sampleRate, qint64 creationTime) {
    return directory() + fileName(slotIdx, sampleRate, creationTime);
}

/// The file's content up to the maximum size; empty when it cannot be read.
QVector<char> readFile(QFile& file) {
    QVector<char> data(static_cast<int>(std::min(file.size(), kMaximumSize)), 0);
    const qint64 count = file.read(data.data(), data.size());
    if (count <= 0) {
        LOG4CPLUS_ERROR(logger, "Failed to read filter cache from " << file.fileName().toStdString()
                                                                    << ": " << count);
        return {};
    }
    if (std::all_of(data.cbegin(), data.cend(), [](char byte) { return byte == 0; })) {
        LOG4CPLUS_ERROR(logger, "The filter cache file contains only zeroes, not using data of: "
                                    << file.fileName().toStdString());
        file.remove();
        return {};
    }
    data.resize(static_cast<int>(count));
    return data;
}

/// The slot to which a file belongs.
struct CacheId {
    int slotIdx;
    qint64 creationTime;
};

/// None when the name is not that of a cache file. The sample rate may be anything.
std::optional<CacheId> parseFileName(const QString& name) {
    const QStringList parts = name.split(QLatin1Char('_'));
    if (parts.size() != 4)
        return std::nullopt;
    bool isSlot = false;
    bool isTime = false;
    const CacheId id{parts[0].toInt(&isSlot), parts[2].toLongLong(&isTime)};
    return isSlot && isTime ? std::optional(id) : std::nullopt;
}

bool isActive(const QString& name, const QMap<int, qint64>& activeIds) {
    const auto id = parseFileName(name);
    if (!id) {
        LOG4CPLUS_DEBUG(logger, "Found unrecognized file in dirac cache folder, removing "
                                    << name.toStdString());
        return false;
    }
    LOG4CPLUS_TRACE(logger, "Checking file id " << id->slotIdx << " createTime " << id->creationTime
                                                << " expected creationTime "
                                                << activeIds.value(id->slotIdx, -1));
    if (activeIds.contains(id->slotIdx) && activeIds[id->slotIdx] == id->creationTime)
        return true;
    LOG4CPLUS_DEBUG(logger, "Id or creation time does not match any of the active ids");
    return false;
}

void removeFile(const QString& name) {
    LOG4CPLUS_DEBUG(logger, "Removing old or unrecognized cache file " << name.toStdString());
    if (!QFile::remove(directory() + name))
        LOG4CPLUS_ERROR(logger, "Failed to remove cache file " << name.toStdString());
}

}  // namespace

bool FilterFilePrecache::checkCreateCacheDir() {
    DIRAC_SCOPED_TRACE();
    const QDir cache(directory());
    if (cache.exists())
        return true;
    if (!cache.mkpath(QStringLiteral("."))) {
        LOG4CPLUS_FATAL(logger, "Unable to create directory for dirac precache binary files");
        Q_ASSERT(false);
    }
    return false;
}

bool FilterFilePrecache::isFilterCached(int slotIdx, int sampleRate, qint64 creationTime) {
    DIRAC_SCOPED_TRACE();
    if (!checkCreateCacheDir())
        return false;
    const QFileInfo file(filePath(slotIdx, sampleRate, creationTime));
    return file.exists() && file.size() > 0;
}

bool FilterFilePrecache::store(int slotIdx, int sampleRate, qint64 creationTime,
                               const QVector<char>& data) {
    DIRAC_SCOPED_TRACE();
    QFile file(directory() + QStringLiteral("tmp_") + fileName(slotIdx, sampleRate, creationTime));
    // Unbuffered, so that a full disk shows in the number of bytes written.
    file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered);
    if (file.write(data.constData(), data.size()) != data.size()) {
        LOG4CPLUS_ERROR(logger,
                        "Failed to write filter cache fully to " << file.fileName().toStdString());
        return false;
    }
    file.rename(filePath(slotIdx, sampleRate, creationTime));
    LOG4CPLUS_DEBUG(logger, "Stored filter data to file " << file.fileName().toStdString());
    return true;
}

QVector<char> FilterFilePrecache::load(int slotIdx, int sampleRate, qint64 creationTime) {
    DIRAC_SCOPED_TRACE();
    if (!isFilterCached(slotIdx, sampleRate, creationTime)) {
        LOG4CPLUS_DEBUG(logger, "Cached data not present for filter with id " << slotIdx);
        return {};
    }
    QFile file(filePath(slotIdx, sampleRate, creationTime));
    if (!file.open(QIODevice::ReadOnly)) {
        LOG4CPLUS_ERROR(logger, "Failed to open file " << file.fileName().toStdString());
        return {};
    }
    const QVector<char> data = readFile(file);
    if (!data.isEmpty()) {
        LOG4CPLUS_DEBUG(logger, "Loaded filter data from file " << file.fileName().toStdString()
                                                                << " of size " << data.size());
    }
    return data;
}

void FilterFilePrecache::cleanup(const QMap<int, qint64>& activeIds) {
    DIRAC_SCOPED_TRACE();
    LOG4CPLUS_DEBUG(logger, "Cleanup files");
    const QStringList names =
        QDir(directory()).entryList({QStringLiteral("*")}, QDir::Files, QDir::Unsorted);
    for (const QString& name : names) {
        if (!isActive(name, activeIds))
            removeFile(name);
    }
}
