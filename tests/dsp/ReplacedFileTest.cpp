#include "dsp/ReplacedFile.h"
#include "dsp/ToolError.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace dsp {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

void write(const fs::path& file, const std::string& text) {
    std::ofstream(file) << text;
}

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

class ReplacedFileTest : public testing::Test {
protected:
    fs::path path(const std::string& name) const { return directory_.path() / name; }

    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory_.path()))
            names.push_back(entry.path().filename());
        return names;
    }

    static void replace(const fs::path& file) {
        ReplacedFile replaced(file);
        write(replaced.partial(), "new");
        replaced.commit();
    }

    static void expectRefused(const fs::path& file, const std::string& reason) {
        try {
            const ReplacedFile replaced(file);
            FAIL() << file << " was taken";
        } catch (const ToolError& error) {
            EXPECT_EQ(error.what(), file.string() + ": " + reason);
        }
    }

    const ScratchDirectory directory_;
};

TEST_F(ReplacedFileTest, IsThereOnceItIsComplete) {
    replace(path("out"));
    EXPECT_EQ(contentOf(path("out")), "new");
    EXPECT_THAT(names(), UnorderedElementsAre("out"));
}

TEST_F(ReplacedFileTest, IsTheOldOneUntilThen) {
    write(path("out"), "old");
    ReplacedFile replaced(path("out"));
    write(replaced.partial(), "new");
    EXPECT_EQ(contentOf(path("out")), "old");
    replaced.commit();
    EXPECT_EQ(contentOf(path("out")), "new");
}

TEST_F(ReplacedFileTest, WithoutACommitNothingIsLeft) {
    {
        const ReplacedFile replaced(path("out"));
        write(replaced.partial(), "new");
    }
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ReplacedFileTest, TwoAtOnceDoNotMeet) {
    ReplacedFile first(path("out"));
    ReplacedFile second(path("out"));
    write(first.partial(), "first");
    write(second.partial(), "second");
    second.commit();
    first.commit();
    EXPECT_EQ(contentOf(path("out")), "first");
}

TEST_F(ReplacedFileTest, HasThePermissionsOfANewFile) {
    replace(path("out"));
    write(path("ordinary"), "");
    EXPECT_EQ(fs::status(path("out")).permissions(), fs::status(path("ordinary")).permissions());
}

TEST_F(ReplacedFileTest, MayHaveTheLongestName) {
    replace(path(std::string(255, 'x')));
    EXPECT_EQ(contentOf(path(std::string(255, 'x'))), "new");
}

TEST_F(ReplacedFileTest, IsTheTargetOfALink) {
    fs::create_directory(path("folder"));
    write(path("folder/target"), "old");
    fs::create_symlink("folder/target", path("second"));
    fs::create_symlink("second", path("link"));
    replace(path("link"));
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_TRUE(fs::is_symlink(path("second")));
    EXPECT_FALSE(fs::is_symlink(path("folder/target")));
    EXPECT_EQ(contentOf(path("folder/target")), "new");
}

TEST_F(ReplacedFileTest, IsTheTargetOfALinkThatIsNotThereYet) {
    fs::create_directory(path("folder"));
    fs::create_symlink("folder/target", path("second"));
    fs::create_symlink("second", path("link"));
    replace(path("link"));
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_TRUE(fs::is_symlink(path("second")));
    EXPECT_EQ(contentOf(path("folder/target")), "new");
}

TEST_F(ReplacedFileTest, WhatIsNoRegularFileIsRefused) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    fs::create_symlink("pipe", path("link"));
    fs::create_directory(path("folder"));
    for (const char* const name : {"pipe", "link", "folder"})
        expectRefused(path(name), "is no regular file");
    EXPECT_THAT(names(), UnorderedElementsAre("pipe", "link", "folder"));
}

TEST_F(ReplacedFileTest, ADeviceIsRefused) {
    const dev_t null = makedev(1, 3);
    if (mknod(path("device").c_str(), S_IFCHR | 0600, null) != 0)
        GTEST_SKIP() << "only root makes devices";
    expectRefused(path("device"), "is no regular file");
    EXPECT_TRUE(fs::is_character_file(path("device")));
}

TEST_F(ReplacedFileTest, AFolderThatIsNotThereIsToldOf) {
    expectRefused(path("nowhere/out"), "cannot be written: No such file or directory");
}

TEST_F(ReplacedFileTest, LinksInACircleAreToldOf) {
    fs::create_symlink("second", path("first"));
    fs::create_symlink("first", path("second"));
    expectRefused(path("first"), "cannot be written: Too many levels of symbolic links");
}

TEST_F(ReplacedFileTest, WhatCannotBePutInItsPlaceIsToldOfAndRemoved) {
    {
        ReplacedFile replaced(path("out"));
        fs::create_directory(path("out"));
        EXPECT_THROW(replaced.commit(), ToolError);
    }
    EXPECT_THAT(names(), UnorderedElementsAre("out"));
}

}  // namespace
}  // namespace dsp
