#include "platform/smt/Message.h"

#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <vector>

using smt::MalformedMessage;
using smt::Message;
using smt::MessageHeader;
using smt::MessageKind;
using testing::HasSubstr;

namespace {

std::vector<std::byte> bytesOf(const MessageHeader& header, std::size_t payload) {
    std::vector<std::byte> bytes(sizeof header + payload, std::byte{7});
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

/// Two frames of stereo.
MessageHeader stereoData() {
    MessageHeader header;
    header.kind = MessageKind::Data;
    header.rate = 48000;
    header.channels = 2;
    header.frames = 2;
    return header;
}

void expectMalformed(const std::vector<std::byte>& bytes, const std::string& fault) {
    try {
        smt::parseMessage(bytes);
        FAIL() << "accepted, without: " << fault;
    } catch (const MalformedMessage& error) {
        EXPECT_THAT(error.what(), HasSubstr(fault));
    }
}

void expectMalformed(const std::function<void(MessageHeader&)>& change, const std::string& fault) {
    MessageHeader header = stereoData();
    change(header);
    expectMalformed(bytesOf(header, 16), fault);
}

}  // namespace

TEST(MessageTest, WellFormedDataAreUnderstood) {
    const auto bytes = bytesOf(stereoData(), 16);
    const Message message = smt::parseMessage(bytes);
    EXPECT_EQ(message.header.kind, MessageKind::Data);
    EXPECT_EQ(message.header.rate, 48000U);
    EXPECT_EQ(message.payload.size(), 16U);
    EXPECT_EQ(message.payload.front(), std::byte{7});
}

TEST(MessageTest, DataMayHaveNoFrames) {
    MessageHeader header = stereoData();
    header.frames = 0;
    EXPECT_TRUE(smt::parseMessage(bytesOf(header, 0)).payload.empty());
}

TEST(MessageTest, EveryLengthBelowTheHeaderIsMalformed) {
    const auto bytes = bytesOf(stereoData(), 0);
    for (std::size_t size = 0; size < sizeof(MessageHeader); ++size)
        expectMalformed({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)},
                        "fewer than its header");
}

TEST(MessageTest, ForeignMessageIsMalformed) {
    expectMalformed([](MessageHeader& header) { header.magic = 1; },
                    "not begin as a media message");
}

TEST(MessageTest, UnknownVersionIsMalformed) {
    expectMalformed([](MessageHeader& header) { header.version = 9; }, "version 9 is not known");
}

TEST(MessageTest, UnknownKindIsMalformed) {
    expectMalformed([](MessageHeader& header) { header.kind = MessageKind{99}; },
                    "kind 99 is not known");
}

TEST(MessageTest, ImpossibleFormatIsMalformed) {
    expectMalformed([](MessageHeader& header) { header.rate = 0; }, "no rate of 0 Hz");
    expectMalformed([](MessageHeader& header) { header.rate = 4'000'000; }, "no rate of 4000000");
    expectMalformed([](MessageHeader& header) { header.channels = 0; }, "no 0 channels");
    expectMalformed([](MessageHeader& header) { header.channels = 65; }, "no 65 channels");
    expectMalformed([](MessageHeader& header) { header.format = audioUtils::PcmFormat{5}; },
                    "format 5 is not known");
}

TEST(MessageTest, PayloadThatIsNotItsFramesIsMalformed) {
    expectMalformed([](MessageHeader& header) { header.frames = 3; }, "not 3 frames of 8 bytes");
    expectMalformed([](MessageHeader& header) { header.frames = ~std::uint64_t{0}; }, "is not");
    expectMalformed(bytesOf(stereoData(), 15), "payload of 15 bytes is not 2 frames");
}

TEST(MessageTest, OnlyDataHaveAPayload) {
    expectMalformed([](MessageHeader& header) { header.kind = MessageKind::Credit; },
                    "has a payload of 16 bytes");
}
