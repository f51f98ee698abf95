#include "platform/player/SmtSource.h"

#include <algorithm>
#include <cstring>

namespace platform {

namespace {

using audioUtils::PcmFormat;

/// Copies the sample's bytes to the upper end of 32 bits.
template <std::size_t Size>
void widen(std::span<const std::byte> bytes, std::int32_t* to) {
    for (std::size_t i = 0; i < bytes.size(); i += Size) {
        std::uint32_t sample = 0;
        std::memcpy(reinterpret_cast<std::byte*>(&sample) + sizeof sample - Size, &bytes[i], Size);
        *to++ = static_cast<std::int32_t>(sample);
    }
}

void widen(PcmFormat format, std::span<const std::byte> bytes, std::int32_t* to) {
    switch (format) {
        case PcmFormat::S16:
            return widen<2>(bytes, to);
        case PcmFormat::S24In3:
            return widen<3>(bytes, to);
        case PcmFormat::S32:
            std::memcpy(to, bytes.data(), bytes.size());
    }
}

}  // namespace

SmtSource::SmtSource(const std::string& socket) : receiver_(smt::localAddress(socket)) {
}

void SmtSource::update(std::uint64_t handedOver) {
    receiver_.report(handedOver);
    if (payload_.empty() && !over_)
        take(receiver_.next());
    if (ending_ == Ending::Announced && handedOver == received_ && receiver_.acknowledgeEnd())
        ending_ = Ending::Acknowledged;
}

void SmtSource::take(smt::Receiver::Event event) {
    switch (event) {
        case smt::Receiver::Event::None:
            return;
        case smt::Receiver::Event::Data: {
            const smt::MessageHeader& header = receiver_.data().header;
            format_ = AudioFormat{header.rate, header.channels};
            payload_ = receiver_.data().payload;
            received_ += header.frames;
            return;
        }
        case smt::Receiver::Event::End:
            ending_ = Ending::Announced;
            return;
        case smt::Receiver::Event::SenderGone:
            over_ = true;
            return;
    }
}

std::size_t SmtSource::read(std::span<std::int32_t> samples) {
    if (payload_.empty())
        return 0;
    const smt::MessageHeader& header = receiver_.data().header;
    const std::size_t sampleSize = smt::bytesPerSample(header.format);
    const std::size_t wanted = samples.size() / header.channels * header.channels * sampleSize;
    const auto bytes = payload_.first(std::min(wanted, payload_.size()));
    widen(header.format, bytes, samples.data());
    payload_ = payload_.subspan(bytes.size());
    return bytes.size() / sampleSize;
}

int SmtSource::descriptor() const {
    return payload_.empty() && !over_ ? receiver_.descriptor() : -1;
}

}  // namespace platform
