#pragma once

#include <QMap>
#include <QVector>
#include <QtGlobal>

/// Files with the DSP's precalculated data, one a slot, sample rate (Hz) and creation time of the
/// slot, in "data-rw/dirac/" below the working directory. A file holds the data and nothing else.
/// A replaced slot has another creation time, so that its old files match no more. Used in one
/// thread; failures are logged and read as "not cached".
class FilterFilePrecache {
public:
    FilterFilePrecache() = delete;

    /// Creates the directory when it is missing: false then, true when it was there. Ends the
    /// process when it cannot be created.
    static bool checkCreateCacheDir();

    /// Whether there is a file that is not empty. Creates the directory.
    static bool isFilterCached(int slotIdx, int sampleRate, qint64 creationTime);

    /// Writes the data to a temporary file and gives it its final name; a file that already has
    /// this name stays. False, with a temporary file left for cleanup(), when not all was written.
    static bool store(int slotIdx, int sampleRate, qint64 creationTime, const QVector<char>& data);

    /// The data, at most the first 1024 bytes; empty when there is none. Data of only zeros is
    /// taken for damaged, and its file removed.
    static QVector<char> load(int slotIdx, int sampleRate, qint64 creationTime);

    /// Removes every file that does not belong to an active slot: slot index to creation time.
    static void cleanup(const QMap<int, qint64>& activeIds);
};
