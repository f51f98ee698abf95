#include "calibrate/DeviceAddress.h"
#include "calibrate/Errors.h"

#include <gtest/gtest.h>

namespace calibrate {
namespace {

TEST(DeviceAddress, IsThisMachineUnlessSaid) {
    EXPECT_EQ(DeviceAddress().text(), "127.0.0.1:5002");
}

TEST(DeviceAddress, ReadsAHostWithAndWithoutPort) {
    EXPECT_EQ(DeviceAddress::parse("streamer.local").text(), "streamer.local:5002");
    EXPECT_EQ(DeviceAddress::parse("streamer:6000").text(), "streamer:6000");
    EXPECT_EQ(DeviceAddress::parse("10.0.0.7:65535").text(), "10.0.0.7:65535");
}

TEST(DeviceAddress, ReadsIPv6) {
    EXPECT_EQ(DeviceAddress::parse("[::1]:6000").text(), "[::1]:6000");
    EXPECT_EQ(DeviceAddress::parse("[fe80::1%eth0]").text(), "[fe80::1%eth0]:5002");
    EXPECT_EQ(DeviceAddress::parse("::1").text(), "[::1]:5002");
}

TEST(DeviceAddress, RefusesWhatIsNone) {
    for (const char* text : {"", ":5002", "host:", "host:0", "host:65536", "host:x", "host:50 02",
                             "[::1", "[::1]x", "[]:1", "unix:/tmp/socket", "a b", "host/path"})
        EXPECT_THROW(DeviceAddress::parse(text), BadInput) << text;
}

}  // namespace
}  // namespace calibrate
