#pragma once

#include "calibrate/EndpointClient.h"
#include "calibrate/Microphone.h"
#include "calibrate/Stimulus.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace calibrate {

/// The sample rate at which a device streams its microphones, in Hz.
/// Throws BadInput when the device does not have the microphone, DeviceError when it tells no rate
/// that can be.
int readMicrophoneRate(EndpointClient& client, int microphone);

/// What a device's microphone hears. Must not outlive the client.
class MicrophoneStream final : public SampleStream {
public:
    /// Streams until the object dies.
    static std::unique_ptr<MicrophoneStream> open(EndpointClient& client, int microphone);

    /// Plays a stimulus, and streams until it has ended. Gains are the caller's concern
    /// (StimulusGains).
    static std::unique_ptr<MicrophoneStream> openWithStimulus(EndpointClient& client,
                                                              const Stimulus& stimulus,
                                                              int microphone);

    std::span<const float> read() override;
    std::uint64_t invalidSamples() const override { return invalid_; }

private:
    using Stream = EndpointStream<protocol::AudioBuffers>;

    MicrophoneStream(std::unique_ptr<Stream> stream, std::chrono::milliseconds timeout,
                     int microphone);

    void take(const protocol::AudioBuffers& message);
    std::chrono::milliseconds patience() const;
    [[noreturn]] void failSilent() const;

    std::unique_ptr<Stream> stream_;
    std::chrono::milliseconds timeout_;
    std::uint32_t microphone_;
    protocol::AudioBuffers message_;
    std::vector<float> samples_;
    bool begun_{false};  // whether samples have come
    std::uint64_t invalid_{0};
};

}  // namespace calibrate
