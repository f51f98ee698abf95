#include "platform/smt/PairSocket.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace smt {
namespace {

TEST(PairSocketTest, OneEndMayCloseWhileTheOtherOpensAndSends) {
    const std::string address = localAddress("PairSocketTest");
    std::atomic<bool> isOver{false};
    std::thread player([&] {
        while (!isOver) {
            PairSocket socket;
            socket.connect(address);
        }
    });
    for (int i = 0; i < 500; ++i) {
        PairSocket socket;
        socket.bind(address);
        socket.trySend(MessageHeader{}, {});
    }
    isOver = true;
    player.join();
}

}  // namespace
}  // namespace smt
