#include "platform/Platform.h"
#include "platform/PlatformPaths.h"
#include "platform/cm/CurrentTree.h"
#include "platform/cm/Tree.h"
#include "platform/player/PlayerControls.h"
#include "platform/player/PlayerStatistics.h"
#include "platform/player/SoundFile.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/player/PlayLogicInterface.h"
#include "support/Eventually.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>

#include <atomic>
#include <latch>
#include <vector>

using platform::PlayFileRequest;
using testing::HasSubstr;

namespace {

CMReply<QVariant> begin(const CMPath& path, const VeskHash& arguments) {
    auto reply = CMReply<QVariant>::create();
    CMRoot()->invoke(path, arguments, reply);
    return reply;
}

CMReply<QVariant> beginPlaying(const std::string& path) {
    PlayFileRequest request;
    request.setPath(QString::fromStdString(path));
    return begin(platform::playerPlayFilePath(), request);
}

CMPath disableSubMixPath() {
    return VeskStreamerDefaultPrefixPath() + VeskStreamerAttributesDisableSubMix();
}

/// Keeps whoever calls it waiting until it is released.
class BusyPlayer : public PlayLogicInterface {
public:
    void release() { released_.count_down(); }
    bool isAsked() const { return asked_; }

    CMPath dataPath() const override { return platform::playerDataPath(); }
    VeskPlayLogicData data() const override { return {}; }
    void play(const VeskRoles& /*roles*/, bool /*enqueue*/) override {
        asked_ = true;
        released_.wait();
    }
    void stop(VeskPlayLogicStopReason::Enum /*reason*/) override {}

private:
    std::atomic<bool> asked_{false};
    std::latch released_{1};
};

class PlayerControlsTest : public testing::Test {
protected:
    static CMError invoke(const CMPath& path, const VeskHash& arguments) {
        return outcome(begin(path, arguments));
    }

    static CMError playFile(const std::string& path) { return outcome(beginPlaying(path)); }

    static CMError outcome(const CMReply<QVariant>& reply) {
        EXPECT_TRUE(reply.waitForFinished(20'000));
        return reply.error();
    }

    static VeskValue subMixDisabled() {
        return VeskValue(CMRoot()->getValue(platform::subMixDisabledPath()));
    }

    static VeskPlayLogicData player() { return PlayLogicInterface::playerInstance()->data(); }

    std::string soundFile(std::size_t frames) const {
        const std::string path = (scratch.path() / "some sound.wav").string();
        writeSoundFile<std::int32_t>(path, std::vector<std::int32_t>(frames), 1);
        return path;
    }

    const ScratchDirectory scratch;
    platform::Platform platform{{}};
};

}  // namespace

TEST_F(PlayerControlsTest, AFileIsPlayedToItsEnd) {
    EXPECT_FALSE(playFile(soundFile(4800)).isError());
    EXPECT_EQ(player().mediaRoles().title().text(), QStringLiteral("some sound.wav"));
    EXPECT_EQ(player().mediaRoles().mediaData().metaData().serviceID(), QStringLiteral("file"));
    EXPECT_TRUE(eventually([] { return player().state() == VeskPlayLogicState::Stopped; }));
    const platform::PlayerStatistics statistics(
        CMRoot()->getValue(platform::playerStatisticsPath()));
    EXPECT_EQ(statistics.frames(), 4800);
    EXPECT_EQ(statistics.underruns(), 0);
}

TEST_F(PlayerControlsTest, PlayingIsStopped) {
    EXPECT_FALSE(playFile(soundFile(48'000 * 60)).isError());
    EXPECT_TRUE(eventually([] { return player().state() == VeskPlayLogicState::Playing; }));
    EXPECT_FALSE(invoke(platform::playerStopPath(), VeskHash()).isError());
    EXPECT_EQ(player().state(), VeskPlayLogicState::Stopped);
}

TEST_F(PlayerControlsTest, AFileThatCannotBePlayedIsAnError) {
    const CMError error = playFile("/no/such/file.wav");
    EXPECT_EQ(error.name(), QStringLiteral("CannotPlay"));
    EXPECT_THAT(error.text().toStdString(), HasSubstr("/no/such/file.wav: "));
    EXPECT_EQ(player().state(), VeskPlayLogicState::Stopped);
}

TEST_F(PlayerControlsTest, ARelativePathIsAnError) {
    EXPECT_EQ(playFile("sound.wav").text(),
              QStringLiteral("The path must be absolute, not \"sound.wav\""));
    EXPECT_TRUE(invoke(platform::playerPlayFilePath(), VeskHash()).isError());
}

TEST_F(PlayerControlsTest, SubMixIsOnAtFirst) {
    EXPECT_EQ(subMixDisabled(), VeskValue::ofBool(false));
}

TEST_F(PlayerControlsTest, SubMixIsDisabledWhenTheReplyComesAndEnabledAgain) {
    EXPECT_FALSE(invoke(disableSubMixPath(), VeskValue::ofBool(true)).isError());
    EXPECT_EQ(subMixDisabled(), VeskValue::ofBool(true));
    EXPECT_FALSE(invoke(disableSubMixPath(), VeskValue::ofBool(false)).isError());
    EXPECT_EQ(subMixDisabled(), VeskValue::ofBool(false));
}

TEST_F(PlayerControlsTest, SubMixWithoutABoolIsAnError) {
    EXPECT_EQ(invoke(disableSubMixPath(), VeskValue::ofI32(1)).name(),
              QStringLiteral("InvalidArgument"));
    EXPECT_EQ(subMixDisabled(), VeskValue::ofBool(false));
}

TEST_F(PlayerControlsTest, WhatIsShownCannotBeWritten) {
    const auto reply = CMReply<QVariant>::create();
    CMRoot()->setValue(platform::subMixDisabledPath(), VeskValue::ofBool(true), reply);
    EXPECT_TRUE(reply.waitForFinished(20'000));
    EXPECT_EQ(reply.error().name(), QStringLiteral("ReadOnly"));
}

TEST(SubMixTest, IsAnsweredWhileAFileKeepsThePlayerWaiting) {
    const auto tree = std::make_shared<platform::Tree>();
    const platform::CurrentTree current(tree);
    const ScratchDirectory scratch;
    const std::string file = (scratch.path() / "sound.wav").string();
    writeSoundFile<std::int32_t>(file, std::vector<std::int32_t>(100), 1);
    BusyPlayer player;
    const platform::PlayerControls controls(player);
    const auto playing = beginPlaying(file);
    EXPECT_TRUE(eventually([&] { return player.isAsked(); }));
    const auto subMix = begin(disableSubMixPath(), VeskValue::ofBool(true));
    EXPECT_TRUE(subMix.waitForFinished(5000));
    player.release();
    EXPECT_TRUE(playing.waitForFinished(20'000));
}
