// A device that cannot store: it says so, goes on, and loses nothing that it had stored.

#include "system/DeviceTest.h"
#include "system/LimitedDisk.h"

namespace {

using testing::HasSubstr;

constexpr std::size_t kDiskSize = 4 << 20;
constexpr DesignSize kSize{2, 1000, 30, false};

class FullDiskTest : public DeviceTest {
protected:
    void SetUp() override {
        disk = LimitedDisk::mount(directory.path(), kDiskSize);
        if (!disk)
            GTEST_SKIP() << "a file system of our own is not allowed";
        options().stateDirectory = directory.path();
        start();
        transfer(0, stored, "Stored");
        activate(0, stored);
        restart();
    }

    void TearDown() override { device().kill(); }

    const FilterDesign stored = makeDesign(kSize, 1);
    const FilterDesign late = makeDesign(kSize, 2);
    const ScratchDirectory directory;
    std::unique_ptr<LimitedDisk> disk;
};

TEST_F(FullDiskTest, theMessageNamesTheFileAndTheReasonAndTheDeviceGoesOn) {
    disk->fill();
    client().transfer(makeSlot(1, "Late", 2), late);
    EXPECT_TRUE(device().awaitLog("Cannot store settings in " +
                                  (directory.path() / "settings.sqlite").string()));
    EXPECT_THAT(device().log(), HasSubstr("full"));
    EXPECT_TRUE(deviceAnswers());
    activate(1, late);
}

TEST_F(FullDiskTest, whatWasStoredBeforeIsThereAfterAKill) {
    disk->fill();
    client().transfer(makeSlot(0, "Late", 2), late);
    ASSERT_TRUE(device().awaitLog("Cannot store settings in "));
    device().kill();

    start();

    EXPECT_TRUE(awaitDesign(stored));
    EXPECT_EQ(device().log().find("are damaged"), std::string::npos);
}

TEST_F(FullDiskTest, theDesignIsStoredWhenThereIsRoomAgain) {
    disk->fill();
    client().transfer(makeSlot(1, "Late", 2), late);
    ASSERT_TRUE(device().awaitLog("Cannot store settings in "));
    disk->empty();
    ASSERT_TRUE(device().awaitLog("Settings are stored again"));
    device().kill();

    start();

    activate(1, late);
    activate(0, stored);
}

TEST_F(FullDiskTest, aFilterCacheThatCannotBeWrittenIsReportedAndNotNeeded) {
    disk->fill();
    client().transfer(makeSlot(1, "Late", 2), late);
    EXPECT_TRUE(device().awaitLog("Failed to write filter cache fully to"));
    activate(1, late);
    EXPECT_GT(image()->subSamplerSizes[0], 0U);
}

/// The other way in which a disk can be too small: no file may grow beyond a limit.
class FileSizeLimitTest : public DeviceTest {};

TEST_F(FileSizeLimitTest, aStoreThatMayNotGrowIsReportedAndKeepsWhatItHas) {
    options().logLevel = "ERROR";
    options().wrapper = {"/bin/sh", "-c", "trap '' XFSZ; exec prlimit --fsize=100000 -- \"$@\"",
                         "limited"};
    const FilterDesign small = makeDesign({2, 10}, 1);
    start();
    transfer(0, small);
    activate(0, small);
    restart();
    for (int slot = 1; slot < 8; ++slot)
        transfer(slot, makeDesign(kSize, 2));
    EXPECT_TRUE(device().awaitLog("Cannot store settings in "));
    EXPECT_TRUE(deviceAnswers());
    device().kill();

    start();

    EXPECT_TRUE(awaitDesign(small));
    EXPECT_EQ(device().log().find("are damaged"), std::string::npos);
}

}  // namespace
