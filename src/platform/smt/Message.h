#pragma once

#include "sdk/smt/PcmFormat.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace smt {

/// What the two ends of a stream tell each other.
enum class MessageKind : std::uint16_t {
    // From the sender.
    Open = 1,  ///< "this stream is yours"
    Data = 2,  ///< frames; the only message with a payload
    End = 3,   ///< no data follow
    // From the player.
    Ready = 17,   ///< "here I am"; answers Open, and is sent unasked when the player has come
    Credit = 18,  ///< so many frames, since the stream's beginning, have reached the device
    Ended = 19,   ///< all data before End have reached the device
};

/// The beginning of each message, little-endian; each message carries the whole of it, so that a
/// player understands the first one that it sees.
struct MessageHeader {
    static constexpr std::uint32_t kMagic = 0x544D5356;  // "VSMT"
    static constexpr std::uint16_t kVersion = 1;

    std::uint32_t magic{kMagic};
    std::uint16_t version{kVersion};
    MessageKind kind{MessageKind::Open};
    std::uint64_t stream{0};  ///< identity of the sender's stream, random; 0: not known
    std::uint64_t player{0};  ///< identity of the player, random; 0: not known
    std::uint64_t number{0};  ///< of Data: counts from 0, without gaps
    std::uint32_t sequence{0};
    std::uint32_t rate{0};  ///< Hz
    std::uint32_t channels{0};
    audioUtils::PcmFormat format{audioUtils::PcmFormat::S32};
    std::uint64_t time{miscUtils::NoTimeValue};
    std::uint64_t duration{miscUtils::NoTimeValue};
    std::uint64_t frames{0};  ///< of Data: in the payload; of Credit: since the beginning
};
static_assert(sizeof(MessageHeader) == 72);

/// A message as it was received. The payload is part of the bytes that were parsed.
struct Message {
    MessageHeader header;
    std::span<const std::byte> payload;
};

/// Why bytes are not a message.
class MalformedMessage : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

constexpr std::size_t kLargestMessage = std::size_t{64} * 1024 * 1024;  // bytes

/// Bytes of one sample; 0 for an unknown format.
std::size_t bytesPerSample(audioUtils::PcmFormat format);

/// What is wrong with a format that data are to be sent in; empty: nothing.
std::string formatFault(unsigned rate, unsigned channels, audioUtils::PcmFormat format);

/// Throws MalformedMessage.
Message parseMessage(std::span<const std::byte> bytes);

}  // namespace smt
