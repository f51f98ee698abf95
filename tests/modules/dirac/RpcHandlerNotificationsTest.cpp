#include "modules/dirac/DeviceInfo.h"
#include "modules/dirac/RpcHandler.h"
#include "platform/PlatformPaths.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/player/PlayLogicInterface.h"
#include "support/DeviceFixture.h"

#include <gmock/gmock.h>
#include <grpcpp/grpcpp.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

using namespace dio::endpoint;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A client's notification stream.
class NotificationClient {
public:
    explicit NotificationClient(const std::string& address = CalibrationClient::kDeviceAddress)
        : client_(address), stream_(client_.stub().Notifications(&context_)) {}

    /// The kinds of the next message; waits for it.
    std::vector<int> next() {
        NotificationInfo message;
        EXPECT_TRUE(stream_->Read(&message));
        return {message.kinds().begin(), message.kinds().end()};
    }

    void cancel() { context_.TryCancel(); }

    std::string finish() {
        NotificationInfo message;
        while (stream_->Read(&message)) {
        }
        return outcome(stream_->Finish());
    }

private:
    CalibrationClient client_;
    grpc::ClientContext context_;
    const std::unique_ptr<grpc::ClientReaderWriter<ClientNotificationInfo, NotificationInfo>>
        stream_;
};

/// The worker's stream at another port, where the test sees what it answers: a client that has
/// cancelled is told nothing any more.
class WatchedNotifications final : public EndpointDevice::Service {
public:
    WatchedNotifications(std::shared_ptr<RpcHandler> handler, bool waitsForCancellation)
        : handler_(std::move(handler)), waitsForCancellation_(waitsForCancellation) {
        int port = 0;
        grpc::ServerBuilder builder;
        builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port);
        builder.RegisterService(this);
        server_ = builder.BuildAndStart();
        address_ = "127.0.0.1:" + std::to_string(port);
    }
    ~WatchedNotifications() override { server_->Shutdown(); }

    const std::string& address() const { return address_; }
    void awaitCall() const { called_.wait(false); }
    /// The answer; waits for it.
    std::string answer() { return answer_.get_future().get(); }

    grpc::Status Notifications(
        grpc::ServerContext* context,
        grpc::ServerReaderWriter<NotificationInfo, ClientNotificationInfo>* stream) override {
        called_ = true;
        called_.notify_all();
        while (waitsForCancellation_ && !context->IsCancelled())
            std::this_thread::yield();
        const grpc::Status status = handler_->Notifications(context, stream);
        answer_.set_value(outcome(status));
        return status;
    }

private:
    const std::shared_ptr<RpcHandler> handler_;
    const bool waitsForCancellation_;
    std::atomic<bool> called_{false};
    std::promise<std::string> answer_;
    std::string address_;
    std::unique_ptr<grpc::Server> server_;
};

constexpr int kActiveFilter = NOTIFICATION_KIND_ACTIVE_FILTER_CHANGED;
constexpr int kSpeakerGain = NOTIFICATION_KIND_SPEAKER_GAIN_CHANGED;
constexpr int kFilterState = NOTIFICATION_KIND_FILTER_STATE_CHANGED;

class RpcHandlerNotificationsTest : public DeviceFixture {
protected:
    /// The device's own status of a connected client.
    static bool isClientConnected() {
        return valueAt(VeskTalvorCorbelDiracClientStatusPath()).bool_();
    }

    void startWithFiltering() {
        startPlatform();
        VeskDiracSlotsList list =
            settingsOf(2, {slotRecord(1, QStringLiteral("A")), slotRecord(2, QStringLiteral("B"))})
                .diracSlotsList();
        list.setFilteringEnabled(true);
        write(VeskDiracSlotsSettingsPath(), VeskValue::of(list));
        constructWorker();
        settle();
    }

    /// A handler of its own, beside the device's.
    std::shared_ptr<RpcHandler> makeHandler() {
        return std::make_shared<RpcHandler>(
            Dirac::deviceInfo(valueAt(VeskDiracConfigPath()).diracConfig(), QString()), &worker(),
            nullptr);
    }

    static CMPath playerPath() { return PlayLogicInterface::playerInstance()->dataPath(); }

    static void play() {
        VeskPlayLogicData playing;
        playing.setState(VeskPlayLogicState::Playing);
        write(playerPath(), VeskValue(playing.hash()));
    }

    static bool isPlaying() {
        return VeskPlayLogicData(valueAt(playerPath()).hash()).state() ==
               VeskPlayLogicState::Playing;
    }

    void setSpeakerGain(double gain) {
        Gain request;
        request.set_gain(gain);
        ask(&Stub::SetSpeakerGain, request);
    }

    void setAttenuationOnTheDevice(double attenuation) {
        write(platform::attenuationPath(), VeskValue::ofDouble(attenuation));
    }
};

}  // namespace

TEST_F(RpcHandlerNotificationsTest, GreetsAClientAndTellsTheStateOfTheDevice) {
    startWithFiltering();
    NotificationClient client;
    EXPECT_THAT(client.next(), IsEmpty());
    EXPECT_THAT(client.next(), ElementsAre(kFilterState, kActiveFilter));
    EXPECT_TRUE(logged("DEBUG Notification: Filter state changed"));
    EXPECT_TRUE(logged("DEBUG Notification: Active filter changed"));
    EXPECT_FALSE(logged("DEBUG Notifications: Speaker gain changed"));
}

TEST_F(RpcHandlerNotificationsTest, TellsTheStateWithinOnePeriodOfTheGreeting) {
    using Clock = std::chrono::steady_clock;
    startWithFiltering();
    NotificationClient client;
    client.next();
    const auto greeted = Clock::now();
    client.next();
    // A period is 100 ms; a busy machine adds to it.
    EXPECT_LT(Clock::now() - greeted, std::chrono::milliseconds(500));
}

TEST_F(RpcHandlerNotificationsTest, TellsTheActiveSlotOfADeviceWithoutFilter) {
    startDevice();
    NotificationClient client;
    EXPECT_THAT(client.next(), IsEmpty());
    EXPECT_THAT(client.next(), ElementsAre(kActiveFilter));
}

TEST_F(RpcHandlerNotificationsTest, AConnectedClientStopsThePlayer) {
    startDevice();
    play();
    NotificationClient client;
    client.next();
    EXPECT_TRUE(eventually([] { return !isPlaying(); }));
}

TEST_F(RpcHandlerNotificationsTest, ShowsTheDeviceThatAClientIsConnected) {
    startDevice();
    EXPECT_FALSE(isClientConnected());
    NotificationClient client;
    client.next();
    client.next();
    EXPECT_TRUE(isClientConnected());
    client.cancel();
    EXPECT_EQ(client.finish().substr(0, 10), "CANCELLED ");
    EXPECT_TRUE(eventually([] { return !isClientConnected(); }));
    EXPECT_TRUE(logged("INFO Notifications: Client disconnected."));
}

TEST_F(RpcHandlerNotificationsTest, AnswersCancelledWithTheTextCancelled) {
    startDevice();
    WatchedNotifications watched(makeHandler(), false);
    NotificationClient client(watched.address());
    client.next();
    client.cancel();
    EXPECT_EQ(watched.answer(), "CANCELLED \"cancelled\"");
    EXPECT_FALSE(isClientConnected());
    EXPECT_TRUE(log().contains("RETURN: CANCELLED"));
}

TEST_F(RpcHandlerNotificationsTest, AGreetingThatCannotBeWrittenEndsTheStream) {
    startDevice();
    play();
    WatchedNotifications watched(makeHandler(), true);
    NotificationClient client(watched.address());
    watched.awaitCall();
    client.cancel();
    EXPECT_EQ(watched.answer(), "UNKNOWN \"Notification write failed\"");
    EXPECT_TRUE(isPlaying());
    EXPECT_FALSE(isClientConnected());
    EXPECT_FALSE(logged("INFO Notifications: Client disconnected."));
}

TEST_F(RpcHandlerNotificationsTest, RefusesASecondClient) {
    startDevice();
    NotificationClient first;
    first.next();
    NotificationClient second;
    EXPECT_EQ(second.finish(), "RESOURCE_EXHAUSTED \"client already connected\"");
    EXPECT_TRUE(logged("INFO Notifications: Client already connected!"));
    EXPECT_THAT(first.next(), ElementsAre(kActiveFilter)) << "the first goes on";
}

TEST_F(RpcHandlerNotificationsTest, TakesTheNextClientWhenTheFirstIsGone) {
    startDevice();
    {
        NotificationClient first;
        first.next();
        first.cancel();
        first.finish();
        ASSERT_TRUE(logs("INFO Notifications: Client disconnected."));
    }
    NotificationClient second;
    EXPECT_THAT(second.next(), IsEmpty());
}

TEST_F(RpcHandlerNotificationsTest, TellsTheNextClientOnlyWhatChangedSince) {
    startDevice();
    {
        NotificationClient first;
        first.next();
        EXPECT_THAT(first.next(), ElementsAre(kActiveFilter));
        first.cancel();
        first.finish();
        ASSERT_TRUE(logs("INFO Notifications: Client disconnected."));
    }
    setAttenuationOnTheDevice(-10.0);
    ASSERT_TRUE(eventually([this] { return worker().getAttenuation() == -10.0; }));
    NotificationClient second;
    EXPECT_THAT(second.next(), IsEmpty());
    EXPECT_THAT(second.next(), ElementsAre(kSpeakerGain));
}

TEST_F(RpcHandlerNotificationsTest, TellsAChangeOfTheSpeakerGainMadeOnTheDevice) {
    startDevice();
    NotificationClient client;
    client.next();
    client.next();
    setAttenuationOnTheDevice(-10.0);
    EXPECT_THAT(client.next(), ElementsAre(kSpeakerGain));
    // It is told once: the next message is about another change.
    transferFir(1, "Sofa", {1.0F});
    activate(1);
    EXPECT_THAT(client.next(), testing::Contains(kActiveFilter));
    EXPECT_EQ(countLogged("DEBUG Notifications: Speaker gain changed"), 1U);
}

TEST_F(RpcHandlerNotificationsTest, DoesNotTellAClientItsOwnChangeOfTheSpeakerGain) {
    startDevice();
    NotificationClient client;
    client.next();
    client.next();
    setSpeakerGain(-10.0);
    ASSERT_TRUE(eventually([] { return valueAt(platform::attenuationPath()).double_() == -10.0; }));
    // The next message is about another change, so that there was none before it.
    transferFir(1, "Sofa", {1.0F});
    activate(1);
    EXPECT_THAT(client.next(), testing::Contains(kActiveFilter));
    EXPECT_FALSE(logged("DEBUG Notifications: Speaker gain changed"));
}

TEST_F(RpcHandlerNotificationsTest, TellsAChoiceInTheMenu) {
    startWithFiltering();
    NotificationClient client;
    client.next();
    client.next();
    EXPECT_EQ(write(VeskDiracActiveFilterPath(), VeskValue::ofI32(1)), "");
    EXPECT_THAT(client.next(), ElementsAre(kActiveFilter));
}

TEST_F(RpcHandlerNotificationsTest, NumbersTheKindsOfTheProtocol) {
    EXPECT_EQ(kSpeakerGain, 4);
    EXPECT_EQ(kFilterState, 5);
    EXPECT_EQ(kActiveFilter, 1);
}
