#pragma once

#include "platform/player/AudioSource.h"
#include "platform/smt/Receiver.h"

#include <string>

namespace platform {

/// A media stream of the transport.
class SmtSource : public AudioSource {
public:
    /// `socket` is the stream's name. Throws std::system_error.
    explicit SmtSource(const std::string& socket);

    void update(std::uint64_t handedOver) override;
    std::optional<AudioFormat> format() const override { return format_; }
    std::size_t read(std::span<std::int32_t> samples) override;
    bool isResting() const override { return ending_ != Ending::NotYet; }
    bool isOver() const override { return over_ && payload_.empty(); }
    int descriptor() const override;

private:
    enum class Ending { NotYet, Announced, Acknowledged };

    void take(smt::Receiver::Event event);

    smt::Receiver receiver_;
    std::optional<AudioFormat> format_;
    std::span<const std::byte> payload_;  // what is left of the present message
    std::uint64_t received_{0};           // frames
    Ending ending_{Ending::NotYet};
    bool over_{false};
};

}  // namespace platform
