// A device that finds its own files damaged, or somebody else's segment, when it starts.

#include "system/DeviceTest.h"

#include <sys/shm.h>

#include <cstring>
#include <fstream>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr int kSegmentKey = 1234;

void writeFile(const std::filesystem::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
}

class DamagedStateTest : public DeviceTest {
protected:
    /// A device that has been used and ended in order.
    void prepare() {
        start();
        transfer(1, design);
        activate(1, design);
        device().stop();
    }

    std::vector<std::filesystem::path> cacheFiles() {
        const auto directory = device().stateDirectory() / "data-rw" / "dirac";
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            files.push_back(entry.path());
        return files;
    }

    std::filesystem::path settings() { return device().stateDirectory() / "settings.sqlite"; }

    std::vector<std::filesystem::path> settingsMovedAside() {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(device().stateDirectory()))
            if (entry.path().filename().string().starts_with("settings.sqlite.damaged-"))
                files.push_back(entry.path());
        return files;
    }

    const FilterDesign design = makeDesign({}, 1);
};

// ---- Filter cache ----

TEST_F(DamagedStateTest, cacheFilesOfZeroesAreCalculatedAgain) {
    prepare();
    ASSERT_THAT(cacheFiles(), SizeIs(4));
    for (const auto& file : cacheFiles())
        writeFile(file, std::string(file_size(file), '\0'));

    start();

    EXPECT_TRUE(awaitDesign(design));
    EXPECT_THAT(device().log(), HasSubstr("The filter cache file contains only zeroes"));
    EXPECT_THAT(device().log(), HasSubstr("Filter data not cached, calculate data for"));
    for (const std::uint32_t bytes : image()->subSamplerSizes)
        EXPECT_GT(bytes, 0U);
}

TEST_F(DamagedStateTest, emptyCacheFilesAreCalculatedAgain) {
    prepare();
    for (const auto& file : cacheFiles())
        resize_file(file, 0);

    start();

    EXPECT_TRUE(awaitDesign(design));
    EXPECT_THAT(device().log(), HasSubstr("Filter data not cached, calculate data for"));
    for (const std::uint32_t bytes : image()->subSamplerSizes)
        EXPECT_GT(bytes, 0U);
}

TEST_F(DamagedStateTest, truncatedCacheFilesDoNotTouchTheFilters) {
    prepare();
    for (const auto& file : cacheFiles())
        resize_file(file, 10);

    start();

    EXPECT_TRUE(awaitDesign(design));
    EXPECT_EQ(image()->subSamplerSizes[0], 10U);
}

TEST_F(DamagedStateTest, cacheFilesOfRubbishOfAnySizeDoNotTouchTheFilters) {
    prepare();
    for (const auto& file : cacheFiles())
        writeFile(file, std::string(100'000, 'x'));

    start();

    EXPECT_TRUE(awaitDesign(design));
    EXPECT_TRUE(deviceAnswers());
}

TEST_F(DamagedStateTest, aFileInPlaceOfTheCacheDirectoryEndsTheDeviceWithAClearMessage) {
    prepare();
    const auto directory = device().stateDirectory() / "data-rw" / "dirac";
    remove_all(directory);
    writeFile(directory, "not a directory");

    device().launch();

    ASSERT_TRUE(device().process().waitForEnd(DeviceProcess::kPatience).has_value());
    EXPECT_THAT(device().log(),
                HasSubstr("Unable to create directory for dirac precache binary files"));
    EXPECT_EQ(readFile(directory), "not a directory");
}

// ---- Settings ----

TEST_F(DamagedStateTest, settingsThatAreNoDatabaseAreMovedAsideAndTheDeviceStarts) {
    prepare();
    const std::string rubbish = "These are not the settings. " + std::string(5000, '#');
    writeFile(settings(), rubbish);

    start();

    EXPECT_THAT(device().log(), HasSubstr("settings.sqlite are damaged"));
    ASSERT_THAT(settingsMovedAside(), SizeIs(1));
    EXPECT_EQ(readFile(settingsMovedAside().front()), rubbish);
    EXPECT_TRUE(tree().value(kSlotsSettings).at("slots_").empty());
    transfer(0, design);
    activate(0, design);
}

TEST_F(DamagedStateTest, aTruncatedDatabaseIsMovedAsideAndTheDeviceStarts) {
    prepare();
    resize_file(settings(), file_size(settings()) / 2);
    const std::string half = readFile(settings());

    start();

    EXPECT_THAT(device().log(), HasSubstr("settings.sqlite are damaged"));
    ASSERT_THAT(settingsMovedAside(), Not(IsEmpty()));
    EXPECT_EQ(readFile(settingsMovedAside().front()), half);
    EXPECT_TRUE(deviceAnswers());
}

TEST_F(DamagedStateTest, damagedPagesAreFoundAndTheDatabaseIsMovedAside) {
    prepare();
    std::fstream file(settings(), std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(4096 + 100);
    file << std::string(20'000, '?') << std::flush;
    file.close();

    start();

    EXPECT_THAT(device().log(), HasSubstr("settings.sqlite are damaged"));
    EXPECT_THAT(settingsMovedAside(), Not(IsEmpty()));
    EXPECT_TRUE(deviceAnswers());
}

// ---- Segment ----

/// A segment that somebody else has made.
class ForeignSegment {
public:
    explicit ForeignSegment(std::size_t size)
        : id_(shmget(kSegmentKey, size, IPC_CREAT | IPC_EXCL | 0666)) {}
    ~ForeignSegment() {
        detach();
        shmctl(id_, IPC_RMID, nullptr);
    }
    ForeignSegment(const ForeignSegment&) = delete;
    ForeignSegment& operator=(const ForeignSegment&) = delete;

    bool exists() const { return id_ >= 0; }
    void attach() { address_ = static_cast<char*>(shmat(id_, nullptr, 0)); }
    void detach() {
        if (address_)
            shmdt(address_);
        address_ = nullptr;
    }
    char* content() { return address_; }

private:
    const int id_;
    char* address_{nullptr};
};

TEST_F(DamagedStateTest, aForeignSegmentIsLeftAloneAndTheDeviceGoesOn) {
    ForeignSegment segment(sizeof(DiracSegment));
    ASSERT_TRUE(segment.exists());
    segment.attach();
    const std::string content(sizeof(DiracSegment), 'f');
    std::memcpy(segment.content(), content.data(), content.size());

    start();
    transfer(0, design);
    ASSERT_TRUE(client().activate(0).ok());

    EXPECT_TRUE(device().awaitLog("sharedMemInit() failed, magic ID mismatch!"));
    EXPECT_TRUE(
        device().awaitLog("set(): failed to set new value, shared memory handle is not valid"));
    EXPECT_EQ(std::string(segment.content(), content.size()), content);
    EXPECT_TRUE(deviceAnswers());
    const ProcessResult shown = segmentTool({"show"});
    EXPECT_EQ(shown.exitCode, 1);
    EXPECT_THAT(shown.errors, HasSubstr("1234"));
}

TEST_F(DamagedStateTest, aSegmentOfAnotherSizeThatNobodyUsesIsReplaced) {
    const ForeignSegment segment(1000);
    ASSERT_TRUE(segment.exists());

    start();
    transfer(0, design);

    activate(0, design);
}

TEST_F(DamagedStateTest, aSegmentOfAnotherSizeThatIsInUseIsLeftAloneAndTheDeviceGoesOn) {
    ForeignSegment segment(1000);
    ASSERT_TRUE(segment.exists());
    segment.attach();

    start();

    EXPECT_TRUE(device().awaitLog(
        "sharedMemInit(): failed to attach to existing shared memory segment with key '1234'"));
    transfer(0, design);
    EXPECT_TRUE(deviceAnswers());
}

TEST_F(DamagedStateTest, aSegmentThatAKilledDeviceLeftIsSetUpAgain) {
    prepare();
    start();
    ASSERT_TRUE(awaitDesign(design));
    device().kill();

    start();

    EXPECT_TRUE(awaitDesign(design));
}

}  // namespace
