#include "platform/smt/Message.h"

#include <bit>
#include <cstring>

namespace smt {

namespace {

static_assert(std::endian::native == std::endian::little);

constexpr unsigned kLowestRate = 1000;      // Hz
constexpr unsigned kHighestRate = 768'000;  // Hz
constexpr unsigned kMostChannels = 64;

bool isKnown(MessageKind kind) {
    switch (kind) {
        case MessageKind::Open:
        case MessageKind::Data:
        case MessageKind::End:
        case MessageKind::Ready:
        case MessageKind::Credit:
        case MessageKind::Ended:
            return true;
    }
    return false;
}

void require(bool condition, const std::string& fault) {
    if (!condition)
        throw MalformedMessage(fault);
}

void checkPayload(const MessageHeader& header, std::size_t size) {
    if (header.kind != MessageKind::Data)
        return require(size == 0, "it has a payload of " + std::to_string(size) + " bytes");
    const std::string fault = formatFault(header.rate, header.channels, header.format);
    require(fault.empty(), fault);
    const std::size_t frameSize = header.channels * bytesPerSample(header.format);
    require(header.frames <= size && header.frames * frameSize == size,
            "its payload of " + std::to_string(size) + " bytes is not " +
                std::to_string(header.frames) + " frames of " + std::to_string(frameSize) +
                " bytes");
}

}  // namespace

std::size_t bytesPerSample(audioUtils::PcmFormat format) {
    switch (format) {
        case audioUtils::PcmFormat::S16:
            return 2;
        case audioUtils::PcmFormat::S24In3:
            return 3;
        case audioUtils::PcmFormat::S32:
            return 4;
    }
    return 0;
}

std::string formatFault(unsigned rate, unsigned channels, audioUtils::PcmFormat format) {
    if (rate < kLowestRate || rate > kHighestRate)
        return "no rate of " + std::to_string(rate) + " Hz can be played";
    if (channels == 0 || channels > kMostChannels)
        return "no " + std::to_string(channels) + " channels can be played";
    if (bytesPerSample(format) == 0)
        return "the sample format " + std::to_string(static_cast<int>(format)) + " is not known";
    return {};
}

Message parseMessage(std::span<const std::byte> bytes) {
    Message message;
    require(bytes.size() >= sizeof message.header,
            "it has " + std::to_string(bytes.size()) + " bytes, fewer than its header");
    std::memcpy(&message.header, bytes.data(), sizeof message.header);
    const MessageHeader& header = message.header;
    require(header.magic == MessageHeader::kMagic, "it does not begin as a media message");
    require(header.version == MessageHeader::kVersion,
            "its version " + std::to_string(header.version) + " is not known");
    require(isKnown(header.kind),
            "its kind " + std::to_string(static_cast<int>(header.kind)) + " is not known");
    message.payload = bytes.subspan(sizeof header);
    checkPayload(header, message.payload.size());
    return message;
}

}  // namespace smt
