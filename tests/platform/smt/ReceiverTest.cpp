#include "platform/smt/Receiver.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <nanomsg/nn.h>
#include <nanomsg/pair.h>

#include <cstring>
#include <string>

using smt::MessageHeader;
using smt::MessageKind;
using smt::Receiver;

namespace {

/// The other end of a stream, as anybody could write it.
class RawSender {
public:
    explicit RawSender(const std::string& name) : socket_(nn_socket(AF_SP, NN_PAIR)) {
        EXPECT_GE(nn_bind(socket_, smt::localAddress(name).c_str()), 0);
    }
    ~RawSender() { nn_close(socket_); }
    RawSender(const RawSender&) = delete;
    RawSender& operator=(const RawSender&) = delete;

    void send(const std::string& bytes) const {
        EXPECT_TRUE(eventually(
            [&] { return nn_send(socket_, bytes.data(), bytes.size(), NN_DONTWAIT) >= 0; }));
    }

    void send(const MessageHeader& header, const std::string& payload = {}) const {
        std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
        send(bytes + payload);
    }

    /// An empty header when there is nothing.
    MessageHeader tryReceive() const {
        MessageHeader header;
        nn_recv(socket_, &header, sizeof header, NN_DONTWAIT);
        return header;
    }

    MessageHeader receive() const {
        MessageHeader header;
        EXPECT_TRUE(eventually([&] {
            return nn_recv(socket_, &header, sizeof header, NN_DONTWAIT) == sizeof header;
        }));
        return header;
    }

private:
    const int socket_;
};

class ReceiverTest : public testing::Test {
protected:
    Receiver::Event nextEvent() {
        Receiver::Event event = Receiver::Event::None;
        EXPECT_TRUE(eventually([&] { return (event = receiver.next()) != Receiver::Event::None; }));
        return event;
    }

    /// Opens stream 5 and remembers who the player is.
    void open() {
        MessageHeader header;
        header.kind = MessageKind::Open;
        header.stream = 5;
        sender->send(header);
        EXPECT_TRUE(eventually([&] {
            receiver.next();
            const MessageHeader answer = sender->receive();
            player = answer.player;
            return answer.kind == MessageKind::Ready && answer.stream == 5;
        }));
    }

    /// A frame of mono in stream 5.
    MessageHeader frame(std::uint64_t number) const {
        MessageHeader header;
        header.kind = MessageKind::Data;
        header.stream = 5;
        header.player = player;
        header.number = number;
        header.rate = 48000;
        header.channels = 1;
        header.frames = 1;
        return header;
    }

    LogCapture log{"Platform"};
    Receiver receiver{smt::localAddress("ReceiverTest")};
    std::unique_ptr<RawSender> sender{std::make_unique<RawSender>("ReceiverTest")};
    std::uint64_t player{0};
};

}  // namespace

TEST_F(ReceiverTest, PresentsItselfToTheSender) {
    open();
    EXPECT_NE(player, 0U);
}

TEST_F(ReceiverTest, TakesAStreamThatWasOpenedBeforeItCame) {
    EXPECT_TRUE(eventually([&] {
        receiver.next();
        return (player = sender->tryReceive().player) != 0;
    }));
    sender->send(frame(0), "abcd");
    EXPECT_EQ(nextEvent(), Receiver::Event::Data);
}

TEST_F(ReceiverTest, GivesData) {
    open();
    sender->send(frame(0), "abcd");
    EXPECT_EQ(nextEvent(), Receiver::Event::Data);
    EXPECT_EQ(receiver.data().header.frames, 1U);
    EXPECT_EQ(std::memcmp(receiver.data().payload.data(), "abcd", 4), 0);
}

TEST_F(ReceiverTest, MalformedMessagesAreLoggedAndLeftOut) {
    open();
    sender->send(std::string());
    sender->send("rubbish");
    sender->send(std::string(1000, '\xff'));
    MessageHeader wrong = frame(0);
    wrong.frames = 1'000'000;
    sender->send(wrong, "abcd");
    sender->send(frame(0), "good");
    EXPECT_EQ(nextEvent(), Receiver::Event::Data);
    EXPECT_EQ(std::memcmp(receiver.data().payload.data(), "good", 4), 0);
    EXPECT_EQ(log.lines().size(), 4U);
    EXPECT_TRUE(log.contains("WARN A media message is dropped: it has 7 bytes, fewer than"));
}

TEST_F(ReceiverTest, DataOfAnotherStreamOrForAnotherPlayerAreLeftOut) {
    open();
    MessageHeader foreign = frame(0);
    foreign.stream = 6;
    sender->send(foreign, "abcd");
    foreign = frame(0);
    ++foreign.player;
    sender->send(foreign, "abcd");
    sender->send(frame(0), "good");
    EXPECT_EQ(nextEvent(), Receiver::Event::Data);
    EXPECT_EQ(std::memcmp(receiver.data().payload.data(), "good", 4), 0);
}

TEST_F(ReceiverTest, AGapInTheNumbersIsLogged) {
    open();
    sender->send(frame(0), "abcd");
    sender->send(frame(3), "abcd");
    nextEvent();
    nextEvent();
    EXPECT_TRUE(log.contains("Media messages are lost: number 3 follows 1"));
}

TEST_F(ReceiverTest, ReportsAtTheLatestWhenAllHasBeenHandedOver) {
    open();
    sender->send(frame(0), "abcd");
    nextEvent();
    receiver.report(0);
    receiver.report(1);
    MessageHeader report = sender->receive();
    while (report.kind == MessageKind::Ready)
        report = sender->receive();
    EXPECT_EQ(report.kind, MessageKind::Credit);
    EXPECT_EQ(report.frames, 1U);
    EXPECT_EQ(report.stream, 5U);
}

TEST_F(ReceiverTest, NoticesThatTheSenderIsGone) {
    open();
    sender.reset();
    EXPECT_EQ(nextEvent(), Receiver::Event::SenderGone);
}

TEST_F(ReceiverTest, AnotherStreamMeansThatTheSenderIsGone) {
    open();
    MessageHeader header;
    header.kind = MessageKind::Open;
    header.stream = 6;
    sender->send(header);
    EXPECT_EQ(nextEvent(), Receiver::Event::SenderGone);
}

TEST_F(ReceiverTest, WaitsForASenderThatComesAfterOneThatHadNoStream) {
    receiver.next();
    sender.reset();
    sender = std::make_unique<RawSender>("ReceiverTest");
    open();
    sender->send(frame(0), "abcd");
    EXPECT_EQ(nextEvent(), Receiver::Event::Data);
}
