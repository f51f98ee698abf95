#include "calibrate/MicrophoneStream.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/StimulusCall.h"
#include "calibrate/Text.h"

#include <cmath>

namespace calibrate {
namespace {

/// A device may take this long until it has its microphone.
constexpr std::chrono::milliseconds kAcquisition(10000);

constexpr double kMinSampleRate = 1000;
constexpr double kMaxSampleRate = 1e6;

}  // namespace

int readMicrophoneRate(EndpointClient& client, int microphone) {
    const int count = plausibleCount(client.deviceInfo().num_mics(), "microphones");
    if (count == 0)
        throw DeviceError(DeviceError::Reason::failed,
                          "the device has no microphone: give one of this machine with --mic");
    if (microphone < 0 || microphone >= count) {
        throw BadInput("microphone " + std::to_string(microphone) +
                       " does not exist: the device has " +
                       counted(static_cast<std::size_t>(count), "microphone") + ", the first is 0");
    }
    const auto rate = static_cast<double>(client.streamingInfo().sample_rate());
    if (!(rate >= kMinSampleRate && rate <= kMaxSampleRate)) {
        throw DeviceError(DeviceError::Reason::failed,
                          "the device claims to stream its microphone at " + hertz(rate));
    }
    return static_cast<int>(std::lround(rate));
}

std::unique_ptr<MicrophoneStream> MicrophoneStream::open(EndpointClient& client, int microphone) {
    return std::unique_ptr<MicrophoneStream>(
        new MicrophoneStream(client.startStreaming(), client.timeout(), microphone));
}

std::unique_ptr<MicrophoneStream> MicrophoneStream::openWithStimulus(EndpointClient& client,
                                                                     const Stimulus& stimulus,
                                                                     int microphone) {
    client.prepareStimuli(preparation(stimulus, true));
    auto call = std::make_unique<StimulusCall<protocol::AudioBuffers>>(
        client.startRecordingStimuli(startTime(stimulus)));
    return std::unique_ptr<MicrophoneStream>(
        new MicrophoneStream(std::move(call), client.timeout(), microphone));
}

MicrophoneStream::MicrophoneStream(std::unique_ptr<Stream> stream,
                                   std::chrono::milliseconds timeout, int microphone)
    : stream_(std::move(stream)),
      timeout_(timeout),
      microphone_(static_cast<std::uint32_t>(microphone)) {
}

std::span<const float> MicrophoneStream::read() {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + patience();
    samples_.clear();
    while (samples_.empty()) {
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (rest.count() <= 0)
            failSilent();
        switch (stream_->read(message_, rest)) {
            case Stream::Event::message:
                take(message_);
                break;
            case Stream::Event::end:
                return {};
            case Stream::Event::silence:
                failSilent();
        }
    }
    begun_ = true;
    return samples_;
}

void MicrophoneStream::take(const protocol::AudioBuffers& message) {
    for (const auto& buffer : message.buffers()) {
        if (buffer.mic() != microphone_)
            continue;
        for (const float sample : buffer.samples()) {
            const bool valid = std::isfinite(sample);
            samples_.push_back(valid ? sample : 0);
            invalid_ += valid ? 0 : 1;
        }
    }
}

std::chrono::milliseconds MicrophoneStream::patience() const {
    return begun_ ? timeout_ : timeout_ + kAcquisition;
}

void MicrophoneStream::failSilent() const {
    throw DeviceError(DeviceError::Reason::timeout,
                      "the device's microphone sent nothing for " + secondsText(patience()) +
                          (begun_ ? ": it may have been unplugged, or the network is down"
                                  : ": check that it is plugged in, and that nobody else records"));
}

}  // namespace calibrate
