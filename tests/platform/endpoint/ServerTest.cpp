#include "platform/Platform.h"
#include "platform/PlatformPaths.h"
#include "platform/endpoint/LocalSocket.h"
#include "platform/endpoint/StreamingClient.h"
#include "platform/endpoint/StreamingService.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/endpoint/Server.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

using platform::Platform;
using testing::ElementsAre;

namespace {

class CreateServerTest : public testing::Test {
protected:
    static void listenAt(const QString& address) {
        CMRoot()->setValue(platform::endpointListenAddressPath(), VeskValue::ofString(address), {});
    }

    static std::unique_ptr<endpoint::Server> create(unsigned short port) {
        return endpoint::createServer(std::make_shared<StreamingService>(), port);
    }

    const Platform platform{{}};
};

}  // namespace

TEST_F(CreateServerTest, ListensOnAllInterfacesByDefault) {
    const auto server = create(0);
    ASSERT_NE(server, nullptr);
    EXPECT_TRUE(StreamingClient(server->port(), {}, "127.0.0.1").call().ok());
    EXPECT_TRUE(StreamingClient(server->port(), {}, "127.0.0.2").call().ok());
}

TEST_F(CreateServerTest, ListensAtTheAddressOfTheTreeOnly) {
    listenAt(QStringLiteral("127.0.0.2"));
    const auto server = create(0);
    ASSERT_NE(server, nullptr);
    EXPECT_TRUE(StreamingClient(server->port(), {}, "127.0.0.2").call().ok());
    LocalSocket otherAddress;
    EXPECT_THROW(otherAddress.connect(server->port()), std::system_error);
}

TEST_F(CreateServerTest, UnknownAddressGivesNullAndAWarning) {
    const LogCapture log("Platform");
    listenAt(QStringLiteral("192.0.2.1"));
    EXPECT_EQ(create(5002), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("WARN Cannot listen on 192.0.2.1:5002"));
}

TEST_F(CreateServerTest, TakenPortGivesNullAndAWarning) {
    const LogCapture log("Platform");
    const auto first = create(0);
    EXPECT_EQ(create(first->port()), nullptr);
    EXPECT_THAT(log.lines(),
                ElementsAre("WARN Cannot listen on 0.0.0.0:" + std::to_string(first->port())));
}
