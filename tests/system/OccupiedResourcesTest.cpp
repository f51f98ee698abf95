// Devices that meet each other, or somebody else, on the port or in the state directory.

#include "system/DeviceTest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;

/// Somebody else's server on the calibration port.
class PortOccupier {
public:
    PortOccupier() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(5002);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int yes = 1;
        setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        listens_ =
            bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
            listen(socket_, 1) == 0;
    }
    ~PortOccupier() { close(socket_); }
    PortOccupier(const PortOccupier&) = delete;
    PortOccupier& operator=(const PortOccupier&) = delete;

    bool listens() const { return listens_; }

private:
    const int socket_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    bool listens_{false};
};

/// A semaphore at the key of the segment's lock that no process holds and that is not free.
class StuckSemaphore {
public:
    StuckSemaphore() { set(1); }
    ~StuckSemaphore() { set(0); }
    StuckSemaphore(const StuckSemaphore&) = delete;
    StuckSemaphore& operator=(const StuckSemaphore&) = delete;

    std::string id() const { return std::to_string(id_); }

private:
    void set(int value) const { EXPECT_EQ(semctl(id_, 0, SETVAL, value), 0); }

    const int id_{semget(1234, 1, IPC_CREAT | 0666)};
};

class OccupiedResourcesTest : public DeviceTest {
protected:
    const FilterDesign design = makeDesign({}, 1);
};

TEST_F(OccupiedResourcesTest, aTakenPortIsReportedAndTheRestOfTheDeviceRuns) {
    {
        const PortOccupier occupier;
        ASSERT_TRUE(occupier.listens());
        device().launch();
        EXPECT_TRUE(device().awaitLog("DIRAC CAN NOT START SERVER"));
        EXPECT_THAT(device().log(), HasSubstr("5002"));
        EXPECT_EQ(treeTool({"get", kMenu}).exitCode, 0);
        EXPECT_EQ(image()->bypass, 1);
        EXPECT_EQ(device().stop().exitCode, 0);
    }
    start();
}

TEST_F(OccupiedResourcesTest, aStartThatWaitsForAStuckLockSaysSoAndGoesOnWhenItIsFree) {
    {
        const StuckSemaphore stuck;
        device().launch();
        EXPECT_TRUE(device().awaitLog("Still waiting for the lock with key 1234: semaphore " +
                                      stuck.id() + " is 1"));
        EXPECT_THAT(device().log(), HasSubstr("ipcrm -s " + stuck.id()));
        EXPECT_TRUE(device().isRunning());
    }
    EXPECT_TRUE(device().awaitLog("Dirac started listening on port: 5002"));
    EXPECT_EQ(image()->bypass, 1);
    EXPECT_EQ(device().stop().exitCode, 0);
}

TEST_F(OccupiedResourcesTest, aSecondDeviceOverTheSameStateIsRefusedAndTheFirstGoesOn) {
    start();
    transfer(0, design);
    activate(0, design);

    DeviceProcess::Options same;
    same.stateDirectory = device().stateDirectory();
    DeviceProcess second(same);
    second.launch();

    const auto end = second.process().waitForEnd(DeviceProcess::kPatience);
    ASSERT_TRUE(end.has_value());
    EXPECT_EQ(end->exitCode, 1);
    EXPECT_THAT(second.log(), HasSubstr(device().stateDirectory().string()));
    EXPECT_TRUE(deviceAnswers());
    EXPECT_TRUE(holdsDesign(*image(), design));
    EXPECT_EQ(tree().value(kMenu), 0);
}

TEST_F(OccupiedResourcesTest, aSecondDeviceWithItsOwnStateGetsNoPortAndTheFirstKeepsItsSegment) {
    start();
    transfer(0, design);
    activate(0, design);

    DeviceProcess second;
    second.launch();
    EXPECT_TRUE(second.awaitLog("DIRAC CAN NOT START SERVER"));
    EXPECT_EQ(second.stop().exitCode, 0) << second.log();

    EXPECT_TRUE(deviceAnswers());
    EXPECT_NO_THROW(image());
    ASSERT_TRUE(tree().set(kMenu, -1).ok());
    ASSERT_TRUE(tree().set(kMenu, 0).ok());
    EXPECT_TRUE(awaitDesign(design));
}

}  // namespace
