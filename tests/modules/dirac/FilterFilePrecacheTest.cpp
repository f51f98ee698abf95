#include "modules/dirac/FilterFilePrecache.h"
#include "modules/dirac/OrdinaryUser.h"
#include "platform/services/ForkedProcess.h"
#include "support/LogCapture.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

QVector<char> bytes(int count, char first = 1) {
    QVector<char> data;
    for (int i = 0; i < count; ++i)
        data.append(static_cast<char>(first + i % 7));
    return data;
}

std::string textOf(const QVector<char>& data) {
    return {data.begin(), data.end()};
}

/// A file that has a size but nothing to read; only the kernel's own file systems have such files.
std::optional<fs::path> unreadableFile() {
    const auto isEmpty = [](const fs::path& path) {
        std::ifstream file(path);
        return file.is_open() && file.get() == std::ifstream::traits_type::eof();
    };
    std::error_code ignored;
    for (const auto& cache : fs::directory_iterator("/sys/kernel/slab", ignored)) {
        const fs::path path = cache.path() / "ctor";
        if (fs::exists(path, ignored) && fs::file_size(path, ignored) > 0 && isEmpty(path))
            return path;
    }
    return std::nullopt;
}

}  // namespace

/// A working directory of its own, with verbs for what lies in the cache directory.
class FilterFilePrecacheTest : public testing::Test {
protected:
    /// The log without the traces of the functions.
    std::vector<std::string> messages() const {
        std::vector<std::string> lines = log.lines();
        std::erase_if(lines, [](const std::string& line) {
            return line.starts_with("TRACE Enter ") || line.starts_with("TRACE Leave ");
        });
        return lines;
    }

    FilterFilePrecacheTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        fs::current_path(scratch_.path());
    }
    ~FilterFilePrecacheTest() override { fs::current_path(before_); }

    static fs::path cachePath(const std::string& name) { return fs::path("data-rw/dirac") / name; }

    static void put(const std::string& name, const std::string& content) {
        fs::create_directories("data-rw/dirac");
        std::ofstream(cachePath(name), std::ios::binary) << content;
    }

    static std::string contentOf(const std::string& name) {
        std::ifstream file(cachePath(name), std::ios::binary);
        std::ostringstream content;
        content << file.rdbuf();
        return content.str();
    }

    static std::vector<std::string> files() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator("data-rw/dirac"))
            names.push_back(entry.path().filename().string());
        return names;
    }

    LogCapture log{"Dirac"};

private:
    const fs::path before_{fs::current_path()};
    const ScratchDirectory scratch_;
};

// The directory.

TEST_F(FilterFilePrecacheTest, MissingDirectoryIsCreatedWithItsParents) {
    EXPECT_FALSE(FilterFilePrecache::checkCreateCacheDir());
    EXPECT_TRUE(fs::is_directory("data-rw/dirac"));
    EXPECT_TRUE(FilterFilePrecache::checkCreateCacheDir());
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(FilterFilePrecacheTest, FirstQuestionCreatesTheDirectoryAndFindsNothing) {
    EXPECT_FALSE(FilterFilePrecache::isFilterCached(2, 96000, 17));
    EXPECT_TRUE(fs::is_directory("data-rw/dirac"));
}

TEST_F(FilterFilePrecacheTest, DirectoryThatCannotBeCreatedEndsTheProcess) {
    std::ofstream("data-rw") << "a file in the way";
    EXPECT_DEATH(FilterFilePrecache::checkCreateCacheDir(),
                 "FATAL - Unable to create directory for dirac precache binary files.*"
                 "\"false\" in file src/modules/dirac/FilterFilePrecache.cpp");
}

// Storing.

TEST_F(FilterFilePrecacheTest, StoredDataIsTheWholeFileUnderItsName) {
    FilterFilePrecache::checkCreateCacheDir();
    EXPECT_TRUE(FilterFilePrecache::store(2, 96000, 1700000000, bytes(1000)));
    EXPECT_THAT(files(), ElementsAre("2_96000_1700000000_data"));
    EXPECT_EQ(contentOf("2_96000_1700000000_data"), textOf(bytes(1000)));
    EXPECT_THAT(messages(), ElementsAre("DEBUG Stored filter data to file "
                                        "data-rw/dirac/2_96000_1700000000_data"));
}

TEST_F(FilterFilePrecacheTest, NumbersOfTheNameAreDecimalWithoutLeadingZeros) {
    FilterFilePrecache::checkCreateCacheDir();
    FilterFilePrecache::store(0, 88200, 0, bytes(1));
    FilterFilePrecache::store(-1, 192000, -9223372036854775807LL - 1, bytes(1));
    EXPECT_THAT(files(),
                UnorderedElementsAre("0_88200_0_data", "-1_192000_-9223372036854775808_data"));
}

TEST_F(FilterFilePrecacheTest, LargeDataIsStoredWhole) {
    FilterFilePrecache::checkCreateCacheDir();
    EXPECT_TRUE(FilterFilePrecache::store(1, 88200, 5, bytes(100000)));
    EXPECT_EQ(contentOf("1_88200_5_data"), textOf(bytes(100000)));
}

TEST_F(FilterFilePrecacheTest, SecondStoreOfANameStaysInTheTemporaryFile) {
    FilterFilePrecache::checkCreateCacheDir();
    EXPECT_TRUE(FilterFilePrecache::store(1, 88200, 5, bytes(10, 1)));
    EXPECT_TRUE(FilterFilePrecache::store(1, 88200, 5, bytes(10, 50)));

    EXPECT_THAT(files(), UnorderedElementsAre("1_88200_5_data", "tmp_1_88200_5_data"));
    EXPECT_EQ(contentOf("1_88200_5_data"), textOf(bytes(10, 1)));
    EXPECT_EQ(contentOf("tmp_1_88200_5_data"), textOf(bytes(10, 50)));
    EXPECT_EQ(messages().back(),
              "DEBUG Stored filter data to file data-rw/dirac/tmp_1_88200_5_data");

    FilterFilePrecache::cleanup({{1, 5}});
    EXPECT_THAT(files(), ElementsAre("1_88200_5_data"));
}

TEST_F(FilterFilePrecacheTest, LeftoverTemporaryFileIsOverwritten) {
    put("tmp_1_88200_5_data", std::string(5000, 'x'));
    EXPECT_TRUE(FilterFilePrecache::store(1, 88200, 5, bytes(10)));
    EXPECT_EQ(contentOf("1_88200_5_data"), textOf(bytes(10)));
}

TEST_F(FilterFilePrecacheTest, StoreDoesNotCreateTheDirectory) {
    EXPECT_FALSE(FilterFilePrecache::store(1, 88200, 5, bytes(10)));
    EXPECT_FALSE(fs::exists("data-rw"));
    EXPECT_THAT(messages(), ElementsAre("ERROR Failed to write filter cache fully to "
                                        "data-rw/dirac/tmp_1_88200_5_data"));
}

TEST_F(FilterFilePrecacheTest, FileThatCannotBeOpenedIsAFailedStore) {
    fs::create_directories(cachePath("tmp_1_88200_5_data"));
    EXPECT_FALSE(FilterFilePrecache::store(1, 88200, 5, bytes(10)));
    EXPECT_THAT(messages(), ElementsAre("ERROR Failed to write filter cache fully to "
                                        "data-rw/dirac/tmp_1_88200_5_data"));
}

TEST_F(FilterFilePrecacheTest, FullDiskIsAFailedStore) {
    FilterFilePrecache::checkCreateCacheDir();
    fs::create_symlink("/dev/full", cachePath("tmp_1_88200_5_data"));
    EXPECT_FALSE(FilterFilePrecache::store(1, 88200, 5, bytes(10)));
    EXPECT_THAT(messages(), ElementsAre("ERROR Failed to write filter cache fully to "
                                        "data-rw/dirac/tmp_1_88200_5_data"));
    EXPECT_FALSE(fs::exists(cachePath("1_88200_5_data")));
}

TEST_F(FilterFilePrecacheTest, ShortWriteLeavesTheTemporaryFileToTheCleanup) {
    FilterFilePrecache::checkCreateCacheDir();
    // In a process of its own: the limit holds for all that it writes.
    ForkedProcess limited([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{100, 100};
        setrlimit(RLIMIT_FSIZE, &limit);
        return !FilterFilePrecache::store(1, 88200, 5, bytes(500)) &&
               log.contains(
                   "ERROR Failed to write filter cache fully to "
                   "data-rw/dirac/tmp_1_88200_5_data");
    });
    EXPECT_TRUE(limited.succeeded());

    EXPECT_THAT(files(), ElementsAre("tmp_1_88200_5_data"));
    EXPECT_EQ(contentOf("tmp_1_88200_5_data").size(), 100U);
    FilterFilePrecache::cleanup({{1, 5}});
    EXPECT_THAT(files(), IsEmpty());
}

// Loading.

TEST_F(FilterFilePrecacheTest, StoredDataIsLoaded) {
    FilterFilePrecache::checkCreateCacheDir();
    FilterFilePrecache::store(2, 96000, 17, bytes(300));
    EXPECT_TRUE(FilterFilePrecache::isFilterCached(2, 96000, 17));
    EXPECT_EQ(FilterFilePrecache::load(2, 96000, 17), bytes(300));
    EXPECT_EQ(messages().back(),
              "DEBUG Loaded filter data from file data-rw/dirac/2_96000_17_data of size 300");
}

TEST_F(FilterFilePrecacheTest, SlotRateAndCreationTimeMustAllMatch) {
    put("2_96000_17_data", "x");
    EXPECT_TRUE(FilterFilePrecache::isFilterCached(2, 96000, 17));
    EXPECT_FALSE(FilterFilePrecache::isFilterCached(3, 96000, 17));
    EXPECT_FALSE(FilterFilePrecache::isFilterCached(2, 88200, 17));
    EXPECT_FALSE(FilterFilePrecache::isFilterCached(2, 96000, 18));
}

TEST_F(FilterFilePrecacheTest, MissingFileIsNotCached) {
    EXPECT_THAT(FilterFilePrecache::load(2, 96000, 17), IsEmpty());
    EXPECT_THAT(messages(), ElementsAre("DEBUG Cached data not present for filter with id 2"));
}

TEST_F(FilterFilePrecacheTest, EmptyFileIsNotCached) {
    put("2_96000_17_data", "");
    EXPECT_FALSE(FilterFilePrecache::isFilterCached(2, 96000, 17));
    EXPECT_THAT(FilterFilePrecache::load(2, 96000, 17), IsEmpty());
    EXPECT_THAT(messages(), ElementsAre("DEBUG Cached data not present for filter with id 2"));
}

TEST_F(FilterFilePrecacheTest, SingleByteThatIsNotZeroIsLoaded) {
    put("2_96000_17_data", "\x01");
    EXPECT_EQ(FilterFilePrecache::load(2, 96000, 17), QVector<char>{'\x01'});
}

TEST_F(FilterFilePrecacheTest, LongFileIsLoadedUpTo1024Bytes) {
    put("2_96000_17_data", textOf(bytes(2000)));
    EXPECT_EQ(FilterFilePrecache::load(2, 96000, 17), bytes(1024));
    EXPECT_EQ(messages().back(),
              "DEBUG Loaded filter data from file data-rw/dirac/2_96000_17_data of size 1024");
}

TEST_F(FilterFilePrecacheTest, FileThatCannotBeOpenedIsNotUsed) {
    fs::create_directories(cachePath("2_96000_17_data/something"));
    EXPECT_THAT(FilterFilePrecache::load(2, 96000, 17), IsEmpty());
    EXPECT_THAT(messages(), ElementsAre("ERROR Failed to open file data-rw/dirac/2_96000_17_data"));
}

TEST_F(FilterFilePrecacheTest, FileWithoutReadPermissionIsNotUsed) {
    put("2_96000_17_data", "content");
    fs::permissions(".", fs::perms::all);
    fs::permissions(cachePath("2_96000_17_data"), fs::perms::none);
    const OrdinaryUser user;
    EXPECT_THAT(FilterFilePrecache::load(2, 96000, 17), IsEmpty());
    EXPECT_THAT(messages(), ElementsAre("ERROR Failed to open file data-rw/dirac/2_96000_17_data"));
}

TEST_F(FilterFilePrecacheTest, FileThatGivesNothingIsNotUsed) {
    const auto unreadable = unreadableFile();
    if (!unreadable)
        GTEST_SKIP() << "no file here has a size and gives nothing";
    FilterFilePrecache::checkCreateCacheDir();
    fs::create_symlink(*unreadable, cachePath("2_96000_17_data"));
    EXPECT_THAT(FilterFilePrecache::load(2, 96000, 17), IsEmpty());
    EXPECT_THAT(messages(), ElementsAre("ERROR Failed to read filter cache from "
                                        "data-rw/dirac/2_96000_17_data: 0"));
}

TEST_F(FilterFilePrecacheTest, FileOfOnlyZerosIsDeletedAndNotUsed) {
    put("2_96000_17_data", std::string(500, '\0'));
    EXPECT_THAT(FilterFilePrecache::load(2, 96000, 17), IsEmpty());
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_THAT(messages(), ElementsAre("ERROR The filter cache file contains only zeroes, not "
                                        "using data of: data-rw/dirac/2_96000_17_data"));
}

TEST_F(FilterFilePrecacheTest, OnlyTheBytesReadCountAsZeros) {
    put("2_96000_17_data", std::string(1024, '\0') + "x");
    EXPECT_THAT(FilterFilePrecache::load(2, 96000, 17), IsEmpty());
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(FilterFilePrecacheTest, OneByteAmongZerosIsEnough) {
    put("2_96000_17_data", std::string(100, '\0') + "x");
    EXPECT_EQ(FilterFilePrecache::load(2, 96000, 17).size(), 101);
}

// Cleaning up.

TEST_F(FilterFilePrecacheTest, CleanupWithoutActiveSlotsRemovesEveryFile) {
    for (const auto* name : {"1_88200_5_data", "tmp_1_88200_5_data", "notes.txt"})
        put(name, "x");
    FilterFilePrecache::cleanup({});
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(FilterFilePrecacheTest, CleanupKeepsTheFilesOfActiveSlotsWhateverTheirRate) {
    for (const auto* name : {"5_48000_123_data", "5_x_123_data", "5__123_", "5_48000_124_data",
                             "6_48000_123_data", "notes.txt", "5_48000_123", "x_48000_123_data",
                             "5_48000_x_data", "5_48000_123_data_", "tmp_5_48000_123_data"})
        put(name, "x");
    FilterFilePrecache::cleanup({{5, 123}});
    EXPECT_THAT(files(), UnorderedElementsAre("5_48000_123_data", "5_x_123_data", "5__123_"));
}

TEST_F(FilterFilePrecacheTest, CleanupSaysWhatItKeeps) {
    put("5_48000_123_data", "x");
    FilterFilePrecache::cleanup({{5, 123}});
    EXPECT_THAT(messages(), ElementsAre("DEBUG Cleanup files",
                                        "TRACE Checking file id 5 createTime 123 expected "
                                        "creationTime 123"));
}

TEST_F(FilterFilePrecacheTest, CleanupSaysWhyItRemovesAnOldFile) {
    put("5_48000_124_data", "x");
    FilterFilePrecache::cleanup({{5, 123}});
    EXPECT_THAT(messages(),
                ElementsAre("DEBUG Cleanup files",
                            "TRACE Checking file id 5 createTime 124 expected creationTime 123",
                            "DEBUG Id or creation time does not match any of the active ids",
                            "DEBUG Removing old or unrecognized cache file 5_48000_124_data"));
}

TEST_F(FilterFilePrecacheTest, CleanupExpectsMinusOneOfAnUnknownSlot) {
    put("5_48000_-1_data", "x");
    FilterFilePrecache::cleanup({});
    EXPECT_THAT(messages(),
                Contains("TRACE Checking file id 5 createTime -1 expected creationTime -1"));
    EXPECT_THAT(files(), IsEmpty()) << "the slot is unknown all the same";
}

TEST_F(FilterFilePrecacheTest, CleanupSaysWhyItRemovesAnUnrecognisedFile) {
    put("notes.txt", "x");
    FilterFilePrecache::cleanup({{5, 123}});
    EXPECT_THAT(
        messages(),
        ElementsAre("DEBUG Cleanup files",
                    "DEBUG Found unrecognized file in dirac cache folder, removing notes.txt",
                    "DEBUG Removing old or unrecognized cache file notes.txt"));
}

TEST_F(FilterFilePrecacheTest, CleanupLeavesDirectoriesAlone) {
    fs::create_directories(cachePath("1_88200_5_data"));
    FilterFilePrecache::cleanup({});
    EXPECT_THAT(files(), ElementsAre("1_88200_5_data"));
}

TEST_F(FilterFilePrecacheTest, CleanupWithoutADirectoryDoesNothing) {
    FilterFilePrecache::cleanup({});
    EXPECT_THAT(messages(), ElementsAre("DEBUG Cleanup files"));
    EXPECT_FALSE(fs::exists("data-rw"));
}

TEST_F(FilterFilePrecacheTest, CleanupGoesOnAfterAFileThatCannotBeRemoved) {
    put("one.txt", "x");
    put("two.txt", "x");
    fs::permissions(".", fs::perms::all);
    fs::permissions("data-rw/dirac", fs::perms(0555));
    {
        const OrdinaryUser user;
        FilterFilePrecache::cleanup({});
    }
    fs::permissions("data-rw/dirac", fs::perms(0755));
    EXPECT_THAT(files(), UnorderedElementsAre("one.txt", "two.txt"));
    EXPECT_THAT(messages(), Contains("ERROR Failed to remove cache file one.txt"));
    EXPECT_THAT(messages(), Contains("ERROR Failed to remove cache file two.txt"));
}

// Traces.

TEST_F(FilterFilePrecacheTest, TracesEachFunction) {
    FilterFilePrecache::cleanup({});
    FilterFilePrecache::load(1, 48000, 2);
    FilterFilePrecache::store(1, 48000, 2, bytes(3));
    for (const char* const signature :
         {"static bool FilterFilePrecache::checkCreateCacheDir()",
          "static bool FilterFilePrecache::isFilterCached(int, int, qint64)",
          "static bool FilterFilePrecache::store(int, int, qint64, const QVector<char>&)",
          "static QVector<char> FilterFilePrecache::load(int, int, qint64)",
          "static void FilterFilePrecache::cleanup(const QMap<int, long long int>&)"}) {
        EXPECT_THAT(log.lines(), Contains("TRACE Enter " + std::string(signature)));
        EXPECT_THAT(log.lines(), Contains("TRACE Leave " + std::string(signature)));
    }
}
