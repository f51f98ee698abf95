#include "modules/dirac/AudioRecorder.h"
#include "modules/dirac/DeviceInfo.h"
#include "sdk/cm/VeskPaths.h"
#include "support/DeviceFixture.h"

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>

using dio::endpoint::Void;
using testing::ElementsAre;

namespace {

constexpr const char* kStopped = "INFO Stop PRGC Dirac server";
constexpr const char* kCannotStart = "ERROR DIRAC CAN NOT START SERVER";
constexpr const char* kListening = "INFO Dirac started listening on port: 5002";

/// Somebody else listens at the calibration port.
class TakenPort {
public:
    TakenPort() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int on = 1;
        setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(5002);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(socket_, 1) != 0)
            throw std::system_error(errno, std::generic_category(), "port 5002");
    }
    ~TakenPort() { close(socket_); }
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;

private:
    const int socket_;
};

class DiracServerTest : public DeviceFixture {
protected:
    std::string deviceName() { return ask(&Stub::GetDeviceInfo, Void()).device_name(); }

    bool answers() { return outcomeOf(&Stub::GetDeviceInfo, Void()) == "OK"; }

    /// A change of the configuration that means nothing but a restart of the server.
    static VeskDiracConfig withSlots(unsigned numberOfSlots) {
        VeskDiracConfig config = valueAt(VeskDiracConfigPath()).diracConfig();
        config.setNumberOfSlots(numberOfSlots);
        return config;
    }

    std::size_t position(const std::string& line, std::size_t from = 0) {
        const auto lines = log().lines();
        const auto found =
            std::find(lines.begin() + static_cast<std::ptrdiff_t>(from), lines.end(), line);
        return static_cast<std::size_t>(found - lines.begin());
    }
};

}  // namespace

TEST_F(DiracServerTest, ServesTheCalibrationPort) {
    startDevice();
    EXPECT_TRUE(logged("INFO Starting Dirac Server for 2 speakers"));
    EXPECT_TRUE(logged("INFO ~~~~~~ manufacturer = Vesk model name = Xy"));
    EXPECT_TRUE(logged(kListening));
    EXPECT_EQ(deviceName(), "Living room");
}

TEST_F(DiracServerTest, AssemblesTheDeviceFromConfigurationAndIdentity) {
    description.speakers = {{QStringLiteral("Left"), 1, 3}, {QStringLiteral("Bass"), 4, 5}};
    description.microphones = QStringList{QStringLiteral("One"), QStringLiteral("Two")};
    description.stimuliSampleRate = 44100;
    description.stimuliChannels = 6;
    description.ipcKey = 9;
    startPlatform();

    const DeviceInfo info =
        Dirac::deviceInfo(valueAt(VeskDiracConfigPath()).diracConfig(), QStringLiteral("the uuid"));

    EXPECT_EQ(info.manufacturer, "Vesk");
    EXPECT_EQ(info.deviceName, "Living room");
    EXPECT_EQ(info.modelName, "Xy");
    EXPECT_EQ(info.uuid, "the uuid");
    ASSERT_EQ(info.speakers.size(), 2U);
    EXPECT_EQ(info.speakers[1].name, "Bass");
    EXPECT_EQ(info.speakers[1].type, 4U);
    EXPECT_EQ(info.speakers[1].groupId, 5U);
    EXPECT_THAT(info.mics, ElementsAre("One", "Two"));
    EXPECT_EQ(info.numberOfSlots, 4U);
    EXPECT_EQ(info.extraInfo, "");
    EXPECT_EQ(info.stimuliSampleRate, 44100);
    EXPECT_EQ(info.stimuliChannels, 6U);
    EXPECT_EQ(info.ipcKey, 9);
}

TEST_F(DiracServerTest, SendsAsManyStimuliChannelsAsSpeakersUnlessConfigured) {
    description.speakers = QList<platform::Speaker>{{QStringLiteral("Speaker"), 1, 0},
                                                    {QStringLiteral("Speaker"), 1, 0},
                                                    {QStringLiteral("Speaker"), 1, 1},
                                                    {QStringLiteral("Speaker"), 1, 1}};
    startPlatform();
    const VeskDiracConfig config = valueAt(VeskDiracConfigPath()).diracConfig();
    ASSERT_FALSE(config.contains(VeskDiracConfig::StimuliChannels()));
    EXPECT_EQ(Dirac::deviceInfo(config, QString()).stimuliChannels, 4U);
}

TEST_F(DiracServerTest, AChangedConfigurationReplacesTheServer) {
    startDevice();
    EXPECT_EQ(write(VeskDiracConfigPath(), VeskValue::of(withSlots(7))), "");
    ASSERT_TRUE(logs("INFO Trigger DIRAC start server"));
    EXPECT_EQ(countLogged(kListening), 2U);
    EXPECT_EQ(countLogged(kStopped), 0U) << "the old server is stopped without a word";
    EXPECT_EQ(ask(&Stub::GetDeviceInfo, Void()).num_slots(), 7U);
}

TEST_F(DiracServerTest, AReplacedServerEndsItsStreams) {
    startDevice();
    grpc::ClientContext context;
    const auto stream = stub().Notifications(&context);
    dio::endpoint::NotificationInfo message;
    ASSERT_TRUE(stream->Read(&message));
    write(VeskDiracConfigPath(), VeskValue::of(withSlots(7)));
    while (stream->Read(&message)) {
    }
    EXPECT_FALSE(stream->Finish().ok());
    EXPECT_TRUE(logs("INFO Trigger DIRAC start server"));
    EXPECT_EQ(countLogged(kListening), 2U);
}

TEST_F(DiracServerTest, ALogLineNamesTheChangedConfiguration) {
    startDevice();
    write(VeskDiracConfigPath(), VeskValue::of(withSlots(7)));
    settle();
    EXPECT_TRUE(log().contains("INFO on_diracConfig_changed: {"));
    EXPECT_TRUE(log().contains("\"numberOfSlots\": 7"));
}

TEST_F(DiracServerTest, AConfigurationThatHoldsTheImageLeavesTheServerAlone) {
    startDevice();
    VeskDiracConfig config = withSlots(7);
    config.setDisableShmUpdate(true);
    write(VeskDiracConfigPath(), VeskValue::of(config));
    settle();
    EXPECT_TRUE(log().contains("INFO on_diracConfig_changed: "));
    EXPECT_FALSE(logged("INFO Trigger DIRAC start server"));
    EXPECT_EQ(countLogged(kListening), 1U);
    EXPECT_EQ(countLogged(kStopped), 0U);
    EXPECT_EQ(ask(&Stub::GetDeviceInfo, Void()).num_slots(), 4U);
}

TEST_F(DiracServerTest, TheRestartActionOnlyStopsTheServer) {
    startDevice();
    EXPECT_FALSE(activateNode(VeskDiracRestartServerPath()).isValid());
    EXPECT_TRUE(logged(kStopped));
    EXPECT_TRUE(logged("TRACE Enter Dirac::makeConnections()::<lambda(const CMSetDataRequest&)>"));
    EXPECT_FALSE(answers());
    EXPECT_EQ(countLogged(kListening), 1U);
}

TEST_F(DiracServerTest, AStoppedServerStartsAgainWithTheNextConfiguration) {
    startDevice();
    activateNode(VeskDiracRestartServerPath());
    write(VeskDiracConfigPath(), VeskValue::of(withSlots(7)));
    ASSERT_TRUE(logs("INFO Trigger DIRAC start server"));
    EXPECT_EQ(ask(&Stub::GetDeviceInfo, Void()).num_slots(), 7U);
}

TEST_F(DiracServerTest, ATakenPortLeavesTheDeviceWithoutServer) {
    const TakenPort port;
    startDevice();
    EXPECT_TRUE(logged(kCannotStart));
    EXPECT_FALSE(logged(kListening));
}

TEST_F(DiracServerTest, TheRestartActionWithoutServerOnlyLogs) {
    const TakenPort port;
    startDevice();
    const std::size_t errors = countLogged(kCannotStart);
    EXPECT_FALSE(activateNode(VeskDiracRestartServerPath()).isValid());
    EXPECT_EQ(countLogged(kStopped), 1U);
    EXPECT_EQ(countLogged(kCannotStart), errors);
    EXPECT_FALSE(logged(kListening));
}

TEST_F(DiracServerTest, AFailedStartIsRepairedByTheNextOne) {
    {
        const TakenPort port;
        startDevice();
    }
    write(VeskDiracConfigPath(), VeskValue::of(withSlots(7)));
    ASSERT_TRUE(logs(kListening));
    EXPECT_EQ(ask(&Stub::GetDeviceInfo, Void()).num_slots(), 7U);
}

TEST_F(DiracServerTest, AServerStartedBeforeTheValuesAreKnownHasNoUuid) {
    startPlatform();
    constructWorker([this] {
        QMetaObject::invokeMethod(&worker(), "on_diracConfig_changed", Qt::DirectConnection,
                                  Q_ARG(VeskValue, valueAt(VeskDiracConfigPath())));
        EXPECT_TRUE(logged(kListening));
        EXPECT_EQ(ask(&Stub::GetDeviceInfo, Void()).uuid(), "");
    });
}

TEST(AudioRecorderFactoryTest, HoldsDeviceAndSampleRate) {
    const AudioRecorderFactory factory(QStringLiteral("hw:1,0"), 48000);
    EXPECT_EQ(factory.deviceName(), QStringLiteral("hw:1,0"));
    EXPECT_EQ(factory.sampleRate(), 48000);
}
