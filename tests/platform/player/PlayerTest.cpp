#include "platform/Platform.h"
#include "platform/PlatformPaths.h"
#include "platform/player/Player.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/CMInitWatcher.h"
#include "support/WaitFor.h"

#include <gmock/gmock.h>

#include <thread>
#include <vector>

using platform::Platform;
using testing::ElementsAre;

namespace {

class PlayerTest : public testing::Test {
protected:
    static PlayLogicInterface* player() { return PlayLogicInterface::playerInstance(); }

    static VeskPlayLogicData data() {
        return VeskPlayLogicData(CMRoot()->getValue(player()->dataPath()));
    }

    /// As when the player plays a source of `service`.
    static void showPlaying(const QString& service) {
        VeskMetaData metaData;
        metaData.setServiceID(service);
        VeskMediaData mediaData;
        mediaData.setMetaData(metaData);
        VeskRoles roles;
        roles.setMediaData(mediaData);
        VeskPlayLogicData playing;
        playing.setState(VeskPlayLogicState::Playing);
        playing.setMediaRoles(roles);
        CMRoot()->setValue(player()->dataPath(), VeskValue(playing.hash()), {});
    }

    static void stop() { player()->stop(VeskPlayLogicStopReason::UserRequested); }

    const Platform platform{{}};
};

}  // namespace

TEST_F(PlayerTest, IsStoppedAtFirst) {
    EXPECT_EQ(data().state(), VeskPlayLogicState::Stopped);
    EXPECT_TRUE(data().mediaRoles().isEmpty());
}

TEST_F(PlayerTest, DataPathHasAValue) {
    EXPECT_TRUE(CMRoot()->getValue(player()->dataPath()).isValid());
}

TEST_F(PlayerTest, StopShowsStoppedWithoutASource) {
    showPlaying(VeskService_Dirac_Id());
    ASSERT_EQ(data().state(), VeskPlayLogicState::Playing);
    stop();
    EXPECT_EQ(data().state(), VeskPlayLogicState::Stopped);
    EXPECT_TRUE(data().mediaRoles().isEmpty());
    EXPECT_EQ(data().mediaRoles().mediaData().metaData().serviceID(), QString());
}

TEST_F(PlayerTest, StopReturnsAtOnceInAnyThread) {
    showPlaying(VeskService_Dirac_Id());
    std::thread([] { stop(); }).join();
    EXPECT_EQ(data().state(), VeskPlayLogicState::Stopped);
}

TEST_F(PlayerTest, WatchersSeeEachTransition) {
    CMInitWatcher watcher(nullptr, QStringLiteral("Test"));
    std::vector<int> states;
    watcher.newCMValueItem(player()->dataPath(), [&](CMValueItem* item) {
        QObject::connect(item, &CMValueItem::changed, [&](const VeskValue& value) {
            states.push_back(VeskPlayLogicData(value.hash()).state());
        });
    });
    showPlaying(VeskService_Dirac_Id());
    stop();
    showPlaying(QStringLiteral("radio"));
    stop();
    EXPECT_TRUE(processEventsUntil([&] { return states.size() >= 4; }));
    EXPECT_THAT(states, ElementsAre(2, 0, 2, 0));
}

TEST_F(PlayerTest, StopOfAStoppedPlayerIsNoTransition) {
    CMInitWatcher watcher(nullptr, QStringLiteral("Test"));
    int transitions = 0;
    watcher.newCMValueItem(player()->dataPath(), [&](CMValueItem* item) {
        QObject::connect(item, &CMValueItem::changed, [&] { ++transitions; });
    });
    stop();
    processAllEvents();
    EXPECT_EQ(transitions, 0);
}

TEST(PlayerInstanceTest, FollowsThePlatform) {
    {
        const Platform first({});
        EXPECT_NE(PlayLogicInterface::playerInstance(), nullptr);
    }
    const Platform second({});
    EXPECT_NE(PlayLogicInterface::playerInstance(), nullptr);
}

TEST(PlayerInstanceDeathTest, NeedsAPlatform) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(PlayLogicInterface::playerInstance(),
                 "The player is used while no platform exists");
}

TEST(VeskPlayLogicStateTest, EachStateHasAText) {
    EXPECT_STREQ(VeskPlayLogicState::toString(VeskPlayLogicState::Stopped), "Stopped");
    EXPECT_STREQ(VeskPlayLogicState::toString(VeskPlayLogicState::Transitioning), "Transitioning");
    EXPECT_STREQ(VeskPlayLogicState::toString(VeskPlayLogicState::Playing), "Playing");
    EXPECT_STREQ(VeskPlayLogicState::toString(VeskPlayLogicState::Paused), "Paused");
}
