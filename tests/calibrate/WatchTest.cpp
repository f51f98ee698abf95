#include "calibrate/EndpointClient.h"
#include "calibrate/Errors.h"
#include "calibrate/NotificationStream.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <sstream>
#include <thread>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

using Context = EndpointDouble::Context;

class WatchTest : public CommandFixture {
protected:
    std::vector<json> jsonLines() const {
        std::vector<json> lines;
        std::istringstream text(output());
        for (std::string line; std::getline(text, line);)
            lines.push_back(json::parse(line));
        return lines;
    }

    EndpointClient client() const {
        return {DeviceAddress::parse(device_.address()), std::chrono::seconds(5),
                stop_.get_token()};
    }
};

TEST_F(WatchTest, PrintsALineForEachChangeWithTheNewValue) {
    device_.store(2, "Night", 1);
    device_.setActive(2);
    device_.setGains({-30, -3, {}});
    device_.notify({4, 5});
    device_.notify({1, 3});
    ASSERT_EQ(run({"watch", "--count", "4"}), kExitOk) << errors();

    const std::string time = "....-..-.. ..:..:.. UTC  ";
    EXPECT_THAT(
        output(),
        MatchesRegex(time + "speaker gain is -30.0 dB\n" + time + "correction is on\n" + time +
                     "slot 2 \"Night\" is active\n" + time + "microphone gain is -3.0 dB\n"));
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
}

TEST_F(WatchTest, PrintsLinesOfJson) {
    device_.setMode(true, true, false);
    device_.notify({4, 5, 1, 2});
    ASSERT_EQ(run({"watch", "--count", "4", "--json"}), kExitOk) << errors();

    const auto lines = jsonLines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0]["change"], "speaker_gain");
    EXPECT_EQ(lines[0]["gain_db"], -20);
    EXPECT_EQ(lines[1]["filtering"], false);
    EXPECT_EQ(lines[2]["slot"], nullptr);
    EXPECT_EQ(lines[3]["slots"].size(), 8U);
    EXPECT_TRUE(lines[0].contains("time_utc"));
}

TEST_F(WatchTest, AKindThatIsUnknownIsOneLineHoweverOftenItIsSent) {
    std::vector<int> kinds(10000, 77);
    kinds.push_back(-5);
    kinds.push_back(4);
    device_.notify(kinds);
    ASSERT_EQ(run({"watch", "--count", "2", "--json"}), kExitOk) << errors();

    EXPECT_EQ(jsonLines()[0]["change"], "unknown");
    EXPECT_EQ(jsonLines()[1]["change"], "speaker_gain");
}

TEST_F(WatchTest, CtrlCEndsItAndTheDeviceIsFreeAgain) {
    device_.onNotifications = [this](Context* context) {
        stop_.request_stop();
        return EndpointDouble::awaitCancelled(context);
    };
    EXPECT_EQ(run({"watch"}), kExitInterrupted);
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
}

TEST_F(WatchTest, ASecondClientIsToldThatThereIsOne) {
    auto first = client();
    const NotificationStream presence(first);

    EXPECT_EQ(run({"watch"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("the device says: client already connected: another "
                                    "calibration client works with this device"));
}

TEST_F(WatchTest, ADeviceThatDoesNotGreetIsGivenUp) {
    device_.onNotifications = &EndpointDouble::awaitCancelled;

    EXPECT_EQ(run({"watch", "--timeout", "0.3"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("the device did not greet within 0.3 s"));
}

TEST_F(WatchTest, ADeviceThatEndsTheStreamIsTold) {
    device_.onNotifications = [](Context*) {
        return grpc::Status(grpc::StatusCode::UNKNOWN, "Notification write failed");
    };
    EXPECT_EQ(run({"watch"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("Notifications: the device says: Notification write failed"));
}

TEST_F(WatchTest, AStreamThatEndsInOrderIsNoChange) {
    device_.onNotifications = [](Context*) { return grpc::Status::OK; };

    EXPECT_EQ(run({"watch"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("Notifications: the device ended them"));
}

TEST_F(WatchTest, PresenceLeavesTheClientFreeForOtherCalls) {
    auto connection = client();
    NotificationStream presence(connection);
    EXPECT_TRUE(presence.wait(std::chrono::milliseconds(1)).empty());
    connection.setSpeakerGain(-33);
    device_.notify({4, 4, 1});

    NotificationStream::Kinds kinds;
    while (kinds.empty())
        kinds = presence.wait(std::chrono::seconds(30));
    EXPECT_THAT(kinds, ElementsAre(dio::endpoint::NOTIFICATION_KIND_SPEAKER_GAIN_CHANGED,
                                   dio::endpoint::NOTIFICATION_KIND_ACTIVE_FILTER_CHANGED));
    EXPECT_EQ(connection.speakerGain(), -33);
}

TEST_F(WatchTest, ADeviceThatVanishesEndsTheWait) {
    auto connection = client();
    NotificationStream presence(connection);
    std::thread end([this] { device_.vanish(); });

    EXPECT_THROW(for (;;) presence.wait(std::chrono::seconds(30)), DeviceError);
    end.join();
}

}  // namespace
}  // namespace calibrate
