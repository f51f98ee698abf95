#include "platform/smt/PairSocket.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace smt {
namespace {

/// A crash or a hang is what must not be.
TEST(PairSocketTest, OneEndMayCloseWhileTheOtherOpensAndSends) {
    const std::string address = localAddress("PairSocketTest");
    std::atomic<bool> isOver{false};
    std::atomic<int> connections{0};
    std::thread player([&] {
        while (!isOver) {
            PairSocket socket;
            socket.connect(address);
            ++connections;
        }
    });
    for (int i = 0; i < 500; ++i) {
        PairSocket socket;
        socket.bind(address);
        socket.trySend(MessageHeader{}, {});
    }
    isOver = true;
    player.join();
    EXPECT_GT(connections, 0);
}

}  // namespace
}  // namespace smt
