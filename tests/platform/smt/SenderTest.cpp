#include "platform/smt/TestPlayer.h"
#include "sdk/smt/Sender.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <vector>

using namespace std::chrono_literals;
using smt::NanomsgProtocol;
using smt::Sender;
using smt::TimeSyncProtocol;
using testing::Each;
using testing::Field;

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kSocket = "SenderTest";
constexpr std::size_t kFrame = 8;                // bytes: stereo
constexpr std::uint64_t kMostOnTheWay = 14'400;  // frames: 0.3 s at 48 kHz
constexpr std::size_t kLongSound = 480'000;      // frames: 10 s at 48 kHz

bool initialize(Sender& sender, const std::string& remote = {}, unsigned port = 0) {
    return sender.initializeSender(kSocket, remote, "", port, TimeSyncProtocol::None,
                                   NanomsgProtocol::Pair);
}

std::vector<std::byte> frames(std::size_t count) {
    std::vector<std::byte> bytes(count * kFrame);
    std::generate(bytes.begin(), bytes.end(),
                  [i = 0U]() mutable { return static_cast<std::byte>(i++ * 31U); });
    return bytes;
}

class SenderTest : public testing::Test {
protected:
    SenderTest() {
        payloader.setNewFormat(48000, 2, audioUtils::PcmFormat::S32);
        sender.setCurrentPayloader(&payloader);
    }

    void open() { ASSERT_TRUE(initialize(sender)); }

    TestPlayer& connectPlayer() { return player.emplace(smt::localAddress(kSocket)); }

    void send(std::size_t count) {
        sender.sendMediaData(miscUtils::NoTimeValue, miscUtils::NoTimeValue, frames(count));
    }

    /// Sends messages of 20 ms, one after the other, in another thread, until told to stop.
    std::future<void> sendOn() {
        return std::async(std::launch::async, [this] {
            while (!stopSending) {
                send(960);
                ++completed;
            }
        });
    }

    /// A thread that is in the midst of a send which waits for the player.
    std::future<void> sendUntilBlocked() {
        auto sending = sendOn();
        EXPECT_TRUE(eventually([&] { return completed == kMostOnTheWay / 960; }));
        return sending;
    }

    /// How long `action` and the end of `sending` take together.
    template <typename Action>
    std::chrono::milliseconds timeToFree(std::future<void>& sending, const Action& action) {
        stopSending = true;
        const auto begin = Clock::now();
        action();
        EXPECT_EQ(sending.wait_for(20s), std::future_status::ready);
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    }

    LogCapture log{"Platform"};
    smt::PcmPayloader payloader;
    std::optional<TestPlayer> player;
    Sender sender;
    std::atomic<bool> stopSending{false};
    std::atomic<std::uint64_t> completed{0};
};

}  // namespace

TEST_F(SenderTest, DataArriveWholeAndInOrder) {
    open();
    connectPlayer().handOverEverything();
    std::vector<std::byte> expected;
    for (std::size_t count = 1; count < 200; count += 13) {
        const auto bytes = frames(count);
        sender.sendMediaData(5, 6, bytes);
        expected.insert(expected.end(), bytes.begin(), bytes.end());
    }
    sender.shutdownSender();
    EXPECT_EQ(player->bytes(), expected);
}

TEST_F(SenderTest, EachMessageTellsItsFormatTimesAndPlace) {
    open();
    connectPlayer().handOverEverything();
    sender.startNewSequence();
    sender.sendMediaData(5, 6, frames(3));
    payloader.setNewFormat(44100, 1, audioUtils::PcmFormat::S16);
    sender.startNewSequence();
    sender.sendMediaData(miscUtils::NoTimeValue, miscUtils::NoTimeValue, frames(1));
    sender.shutdownSender();
    const auto headers = player->headers();
    ASSERT_EQ(headers.size(), 2U);
    EXPECT_EQ(headers[0].number, 0U);
    EXPECT_EQ(headers[0].sequence, 1U);
    EXPECT_EQ(headers[0].rate, 48000U);
    EXPECT_EQ(headers[0].channels, 2U);
    EXPECT_EQ(headers[0].format, audioUtils::PcmFormat::S32);
    EXPECT_EQ(headers[0].time, 5U);
    EXPECT_EQ(headers[0].duration, 6U);
    EXPECT_EQ(headers[0].frames, 3U);
    EXPECT_EQ(headers[1].number, 1U);
    EXPECT_EQ(headers[1].sequence, 2U);
    EXPECT_EQ(headers[1].rate, 44100U);
    EXPECT_EQ(headers[1].channels, 1U);
    EXPECT_EQ(headers[1].frames, 4U);
    EXPECT_EQ(headers[1].time, miscUtils::NoTimeValue);
}

TEST_F(SenderTest, APlayerMayComeBeforeOrAfterTheStream) {
    connectPlayer().handOverEverything();
    open();
    send(100);
    sender.shutdownSender();
    EXPECT_EQ(player->received(), 100U);
    player.reset();

    open();
    auto sending = std::async(std::launch::async, [this] {
        send(50);
        sender.shutdownSender();
    });
    connectPlayer().handOverEverything();
    sending.get();
    EXPECT_EQ(player->received(), 50U);
}

TEST_F(SenderTest, NoMoreThanTheBoundIsOnTheWay) {
    open();
    connectPlayer();
    auto sending = sendUntilBlocked();
    EXPECT_TRUE(eventually([&] { return player->received() == kMostOnTheWay; }));
    for (int i = 0; i < 50; ++i)
        player->handOver(700);
    EXPECT_TRUE(eventually([&] { return player->received() >= kMostOnTheWay + 34 * 960; }));
    player->handOverEverything();
    EXPECT_TRUE(eventually([&] { return completed > 1000; }));
    stopSending = true;
    sending.get();
    EXPECT_LE(player->mostOnTheWay(), kMostOnTheWay);
}

TEST_F(SenderTest, AMessageThatIsLongerThanTheBoundPassesAlone) {
    open();
    connectPlayer();
    auto sending = std::async(std::launch::async, [this] {
        send(48'000);
        send(48'000);
    });
    EXPECT_TRUE(eventually([&] { return player->received() == 48'000; }));
    player->handOver(47'999);
    EXPECT_EQ(sending.wait_for(100ms), std::future_status::timeout);
    EXPECT_EQ(player->received(), 48'000U);
    player->handOver(1);
    EXPECT_TRUE(eventually([&] { return player->received() == 96'000; }));
    sending.get();
}

TEST_F(SenderTest, AMessageOfManyMegabytesArrives) {
    payloader.setNewFormat(192'000, 10, audioUtils::PcmFormat::S32);
    open();
    connectPlayer().handOverEverything();
    sender.sendMediaData(1, 1, frames(4'000'000));
    sender.shutdownSender();
    EXPECT_EQ(player->received(), 800'000U);
}

TEST_F(SenderTest, DisablingFreesAWaitingSendAtOnce) {
    open();
    connectPlayer();
    auto sending = sendUntilBlocked();
    EXPECT_LT(timeToFree(sending, [&] { sender.disableSend(true); }), 200ms);
    EXPECT_TRUE(eventually([&] { return player->received() == kMostOnTheWay; }));
}

TEST_F(SenderTest, DisablingFreesASendThatWaitsForThePlayer) {
    open();
    auto sending = sendOn();
    EXPECT_LT(timeToFree(sending, [&] { sender.disableSend(true); }), 200ms);
}

TEST_F(SenderTest, WhileDisabledNothingIsSent) {
    open();
    connectPlayer().handOverEverything();
    sender.disableSend(true);
    send(100);
    sender.disableSend(false);
    send(7);
    sender.shutdownSender();
    EXPECT_EQ(player->received(), 7U);
}

TEST_F(SenderTest, DisablingFreesTheShutdown) {
    open();
    connectPlayer();
    send(960);
    auto ending = std::async(std::launch::async, [this] { sender.shutdownSender(); });
    EXPECT_TRUE(eventually([&] { return player->sawEnd(); }));
    EXPECT_LT(timeToFree(ending, [&] { sender.disableSend(true); }), 200ms);
}

TEST_F(SenderTest, ShutdownWaitsUntilEverythingHasBeenHandedOver) {
    open();
    connectPlayer();
    send(960);
    send(960);
    auto ending = std::async(std::launch::async, [this] { sender.shutdownSender(); });
    EXPECT_TRUE(eventually([&] { return player->sawEnd(); }));
    player->handOver(1919);
    EXPECT_EQ(ending.wait_for(100ms), std::future_status::timeout);
    player->handOver(1);
    EXPECT_EQ(ending.wait_for(20s), std::future_status::ready);
}

TEST_F(SenderTest, ShutdownLosesNothingHoweverOften) {
    for (int i = 0; i < 50; ++i) {
        Sender one;
        one.setCurrentPayloader(&payloader);
        TestPlayer taker(smt::localAddress(kSocket));
        taker.handOverEverything();
        ASSERT_TRUE(initialize(one));
        for (int k = 0; k < 5; ++k)
            one.sendMediaData(1, 1, frames(480));
        one.shutdownSender();
        ASSERT_EQ(taker.received(), 2400U);
    }
}

TEST_F(SenderTest, ShutdownOfAStreamWithoutDataReturnsAtOnce) {
    open();
    const auto begin = Clock::now();
    sender.shutdownSender();
    EXPECT_LT(Clock::now() - begin, 200ms);
}

TEST_F(SenderTest, AfterTheShutdownNothingIsSent) {
    open();
    connectPlayer().handOverEverything();
    send(10);
    sender.shutdownSender();
    send(10);
    sender.shutdownSender();
    EXPECT_EQ(player->received(), 10U);
}

TEST_F(SenderTest, ThePlayersEndFreesAWaitingSend) {
    open();
    connectPlayer();
    auto sending = sendUntilBlocked();
    EXPECT_LT(timeToFree(sending, [&] { player.reset(); }), 500ms);
    EXPECT_TRUE(log.contains("the stream is given up: its player is gone"));
}

TEST_F(SenderTest, ThePlayersEndFreesTheShutdown) {
    open();
    connectPlayer();
    send(960);
    auto ending = std::async(std::launch::async, [this] { sender.shutdownSender(); });
    EXPECT_TRUE(eventually([&] { return player->sawEnd(); }));
    EXPECT_LT(timeToFree(ending, [&] { player.reset(); }), 500ms);
}

TEST_F(SenderTest, WithoutItsPlayerItDropsDataAndSaysSoOnce) {
    open();
    connectPlayer().handOverEverything();
    send(960);
    EXPECT_TRUE(eventually([&] { return player->received() == 960; }));
    player.reset();
    for (int i = 0; i < 10; ++i)
        send(960);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(SenderTest, AStreamThatHasNotBegunGoesToTheNextPlayer) {
    for (int i = 0; i < 20; ++i) {
        connectPlayer();
        open();
        player.reset();
        connectPlayer().handOverEverything();
        send(100);
        sender.shutdownSender();
        ASSERT_EQ(player->received(), 100U);
        player.reset();
    }
}

TEST_F(SenderTest, AnotherPlayerDoesNotGetTheRestOfAStream) {
    open();
    connectPlayer();
    auto sending = sendUntilBlocked();
    player.reset();
    connectPlayer().handOverEverything();
    EXPECT_LT(timeToFree(sending, [] {}), 500ms);
    EXPECT_EQ(player->received(), 0U);
}

TEST_F(SenderTest, GivesUpWhenNoPlayerComes) {
    open();
    const auto begin = Clock::now();
    send(960);
    const auto waited = Clock::now() - begin;
    EXPECT_GE(waited, 4900ms);
    EXPECT_LT(waited, 8s);
    for (int i = 0; i < 10; ++i)
        send(960);
    sender.shutdownSender();
    EXPECT_LT(Clock::now() - begin - waited, 1s);
    EXPECT_THAT(log.lines(), testing::ElementsAre(
                                 "WARN inproc://SenderTest: the stream is given up: no player has "
                                 "come"));
    EXPECT_TRUE(initialize(sender)) << "the name is free again";
}

TEST_F(SenderTest, ASecondSenderOfTheSameStreamFailsAndSendsNothing) {
    open();
    connectPlayer().handOverEverything();
    Sender second;
    second.setCurrentPayloader(&payloader);
    EXPECT_FALSE(initialize(second));
    const auto begin = Clock::now();
    second.sendMediaData(1, 1, frames(10));
    second.shutdownSender();
    EXPECT_LT(Clock::now() - begin, 200ms);
    send(20);
    sender.shutdownSender();
    EXPECT_EQ(player->received(), 20U);
}

TEST_F(SenderTest, TheNameIsFreeWhenTheSenderIsGone) {
    for (int i = 0; i < 20; ++i) {
        Sender one;
        ASSERT_TRUE(initialize(one));
    }
}

TEST_F(SenderTest, ItsEndDoesNotWaitForThePlayer) {
    connectPlayer();
    Sender one;
    {
        Sender ending;
        ending.setCurrentPayloader(&payloader);
        ASSERT_TRUE(initialize(ending));
        ending.sendMediaData(1, 1, frames(960));
        EXPECT_TRUE(eventually([&] { return player->received() == 960; }));
    }
    EXPECT_TRUE(eventually([&] { return player->sawSenderGone(); }));
}

TEST_F(SenderTest, DataThatAreNotWholeFramesAreRefused) {
    open();
    connectPlayer().handOverEverything();
    sender.sendMediaData(1, 1, std::vector<std::byte>(9));
    EXPECT_TRUE(
        log.contains("ERROR inproc://SenderTest: 9 bytes are not sent: they are not whole"));
    send(3);
    sender.shutdownSender();
    EXPECT_EQ(player->received(), 3U);
}

TEST_F(SenderTest, DataThatNoMessageHoldsAreRefused) {
    open();
    connectPlayer().handOverEverything();
    sender.sendMediaData(1, 1, std::vector<std::byte>(smt::kLargestMessage));
    EXPECT_TRUE(log.contains("67108864 bytes are not sent: they are too many"));
    send(3);
    sender.shutdownSender();
    EXPECT_EQ(player->received(), 3U);
}

TEST_F(SenderTest, DataWithoutAUsableFormatAreRefused) {
    open();
    sender.setCurrentPayloader(nullptr);
    send(1);
    EXPECT_TRUE(log.contains("data without a payloader are not sent"));
    smt::PcmPayloader empty;
    sender.setCurrentPayloader(&empty);
    send(1);
    EXPECT_TRUE(log.contains("no rate of 0 Hz can be played"));
}

TEST_F(SenderTest, ASenderThatWasNotOpenedDropsData) {
    send(1);
    sender.shutdownSender();
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SenderTest, WhatNobodyTakesIsDroppedAtThePaceOfTheSound) {
    const auto expectPace = [this] {
        const auto begin = Clock::now();
        for (int i = 0; i < 11; ++i)
            send(960);
        EXPECT_GE(Clock::now() - begin, 200ms);
        EXPECT_LT(Clock::now() - begin, 2s);
    };
    expectPace();  // not open
    open();
    sender.disableSend(true);
    expectPace();
    sender.disableSend(false);
    connectPlayer().handOverEverything();
    send(960);
    player.reset();
    expectPace();  // given up
}

TEST_F(SenderTest, TheFirstDataThatAreDroppedDoNotWait) {
    open();
    connectPlayer();
    auto sending = sendUntilBlocked();
    timeToFree(sending, [&] { sender.disableSend(true); });
    const auto begin = Clock::now();
    sender.disableSend(false);
    sender.disableSend(true);
    send(kLongSound);
    EXPECT_LT(Clock::now() - begin, 1s);
}

TEST_F(SenderTest, DisablingFreesASendThatIsDropped) {
    send(kLongSound);
    auto sending = std::async(std::launch::async, [this] { send(kLongSound); });
    EXPECT_EQ(sending.wait_for(50ms), std::future_status::timeout);
    EXPECT_LT(timeToFree(sending, [&] { sender.disableSend(true); }), 200ms);
}

TEST_F(SenderTest, EnablingFreesASendThatIsDropped) {
    sender.disableSend(true);
    send(kLongSound);
    auto sending = std::async(std::launch::async, [this] { send(kLongSound); });
    EXPECT_LT(timeToFree(sending, [&] { sender.disableSend(false); }), 200ms);
}

TEST_F(SenderTest, WhatItCannotDoIsRefused) {
    EXPECT_FALSE(
        sender.initializeSender("", "", "", 0, TimeSyncProtocol::None, NanomsgProtocol::Pair));
    EXPECT_FALSE(sender.initializeSender("a", "127.0.0.1", "", 0, TimeSyncProtocol::None,
                                         NanomsgProtocol::Pair));
    EXPECT_FALSE(sender.initializeSender("a", "127.0.0.1", "", 70'000, TimeSyncProtocol::None,
                                         NanomsgProtocol::Pair));
    EXPECT_FALSE(sender.initializeSender("a", "", "", 0, TimeSyncProtocol::SharedClock,
                                         NanomsgProtocol::Pair));
    EXPECT_FALSE(
        sender.initializeSender("a", "", "", 0, TimeSyncProtocol::None, NanomsgProtocol{5}));
}

TEST_F(SenderTest, ARemotePlayerGetsTheSame) {
    constexpr unsigned kPort = 38'117;  // in the test's own network
    player.emplace("tcp://127.0.0.1:" + std::to_string(kPort), smt::Receiver::Place::Bind);
    player->handOver(1000);
    ASSERT_TRUE(initialize(sender, "127.0.0.1", kPort));
    auto sending = sendOn();
    EXPECT_TRUE(eventually([&] { return player->received() >= kMostOnTheWay; }));
    player->handOverEverything();
    EXPECT_TRUE(eventually([&] { return completed > 100; }));
    stopSending = true;
    sending.get();
    sender.shutdownSender();
    EXPECT_EQ(player->received(), completed * 960);
    EXPECT_LE(player->mostOnTheWay(), kMostOnTheWay + 1000);
}

TEST_F(SenderTest, ARemotePlayersEndFreesAWaitingSend) {
    constexpr unsigned kPort = 38'118;  // in the test's own network
    player.emplace("tcp://127.0.0.1:" + std::to_string(kPort), smt::Receiver::Place::Bind);
    ASSERT_TRUE(initialize(sender, "127.0.0.1", kPort));
    auto sending = sendUntilBlocked();
    EXPECT_LT(timeToFree(sending, [&] { player.reset(); }), 500ms);
}

TEST_F(SenderTest, ItMayBeDisabledInAnyThreadAtAnyTime) {
    open();
    connectPlayer().handOverEverything();
    std::atomic<bool> done{false};
    auto disabling = std::async(std::launch::async, [&] {
        for (int i = 0; !done; ++i)
            sender.disableSend(i % 2 == 0);
    });
    for (int i = 0; i < 2000; ++i)
        send(48);
    done = true;
    disabling.get();
    sender.disableSend(false);
    sender.shutdownSender();
    EXPECT_EQ(player->received() % 48, 0U);
}
