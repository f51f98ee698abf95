#pragma once

#include "calibrate/EndpointClient.h"
#include "calibrate/Stimulus.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace calibrate {

/// A recording that is being made. It ends with the object, and with it a stimulus that is played
/// for it; then the destructor waits until the device is quiet.
class SampleStream {
public:
    SampleStream() = default;
    SampleStream(const SampleStream&) = delete;
    SampleStream& operator=(const SampleStream&) = delete;
    virtual ~SampleStream() = default;

    /// The next samples, valid until the next call; none at the end. Samples that are no finite
    /// numbers are 0.
    /// Throws DeviceError when the device or the microphone fails or sends no samples for too long,
    /// Interrupted once the client's stop was requested.
    virtual std::span<const float> read() = 0;

    /// How many samples so far were no finite numbers.
    virtual std::uint64_t invalidSamples() const = 0;
};

/// The microphone with which a room is measured: the device's own, or one of this machine. One
/// stream at a time, which must not outlive the microphone.
class Microphone {
public:
    Microphone() = default;
    Microphone(const Microphone&) = delete;
    Microphone& operator=(const Microphone&) = delete;
    virtual ~Microphone() = default;

    virtual int sampleRate() const = 0;  ///< Hz
    virtual std::string name() const = 0;
    /// Whether its clock is another one than that of the device's player.
    virtual bool hasOwnClock() const = 0;

    /// Listens until the stream's end.
    virtual std::unique_ptr<SampleStream> listen() = 0;

    /// Has the device play a stimulus, and listens until it has ended. Gains are the caller's
    /// concern (StimulusGains).
    virtual std::unique_ptr<SampleStream> record(const Stimulus& stimulus) = 0;
};

/// Which microphone is wanted.
struct MicrophoneChoice {
    /// A number: of the device's, from 0. Anything else: an ALSA name of this machine.
    std::string name{"0"};
    int channel{0};  ///< of this machine's, from 0
};

/// Opens it. Throws BadInput when there is none of that name or number, or when it cannot do what a
/// measurement needs; DeviceError when it is in use. Must not outlive the client.
std::unique_ptr<Microphone> openMicrophone(EndpointClient& client, const MicrophoneChoice& choice);

}  // namespace calibrate
