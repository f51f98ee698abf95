#include "calibrate/Stimulus.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/SpeakerMapping.h"
#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace calibrate {
namespace {

/// The description of a variant, from all that the device has.
template <class Info>
Info chosen(const std::vector<Info>& variants, int variant, const std::string& what) {
    if (variants.empty())
        throw DeviceError(DeviceError::Reason::failed, "the device plays no " + what);
    if (variant < 0 || static_cast<std::size_t>(variant) >= variants.size()) {
        throw BadInput("--variant " + std::to_string(variant) + ": the device has " +
                       counted(variants.size(), what + " variant") +
                       ", the first is 0; 'vesk-calibrate info' lists them");
    }
    return variants[static_cast<std::size_t>(variant)];
}

std::chrono::duration<double> playingTime(double samples, float sampleRate) {
    const auto rate = static_cast<double>(sampleRate);
    if (!(rate > 0 && std::isfinite(rate))) {
        throw DeviceError(
            DeviceError::Reason::failed,
            "the device claims to play a stimulus at a sample rate of " + hertz(rate));
    }
    return std::chrono::duration<double>(samples / rate);
}

void checkSpeakers(const std::vector<Stimulus::Speaker>& speakers) {
    if (speakers.empty())
        throw DeviceError(DeviceError::Reason::failed, "the device has no speakers");
}

void add(std::vector<Stimulus::Speaker>& speakers, const Stimulus::Speaker& speaker) {
    const bool twice = std::any_of(speakers.begin(), speakers.end(),
                                   [&](const auto& other) { return other.index == speaker.index; });
    if (twice)
        throw BadInput("speaker \"" + printable(speaker.name) + "\" is named twice");
    speakers.push_back(speaker);
}

}  // namespace

std::vector<int> Stimulus::speakerIndices() const {
    std::vector<int> indices;
    std::transform(speakers.begin(), speakers.end(), std::back_inserter(indices),
                   [](const Speaker& speaker) { return speaker.index; });
    return indices;
}

std::vector<Stimulus::Speaker> readNamedSpeakers(EndpointClient& client,
                                                 const std::vector<std::string>& texts) {
    const auto names = readSpeakerNames(client, client.deviceInfo());
    std::vector<Stimulus::Speaker> speakers;
    for (const auto& text : texts) {
        const std::size_t index = findSpeaker(text, names);
        add(speakers, {static_cast<int>(index), names[index]});
    }
    for (std::size_t i = 0; i < names.size() && texts.empty(); ++i)
        speakers.push_back({static_cast<int>(i), names[i]});
    checkSpeakers(speakers);
    return speakers;
}

Stimulus readSweep(EndpointClient& client, int variant, std::vector<Stimulus::Speaker> speakers) {
    const auto variants = untilRejected([&](int index) { return client.logSweepInfo(index); });
    const auto info = chosen(variants, variant, "sweep");
    const double samples =
        (static_cast<double>(info.length()) + info.silence()) * info.num_periods();
    return {protocol::STIMULUS_TYPE_LOG_SWEEP, variant, std::move(speakers),
            std::chrono::milliseconds(0), playingTime(samples, info.sample_rate())};
}

Stimulus readNoise(EndpointClient& client, int variant, std::vector<Stimulus::Speaker> speakers) {
    const auto variants = untilRejected([&](int index) { return client.pinkNoiseInfo(index); });
    const auto info = chosen(variants, variant, "noise");
    return {protocol::STIMULUS_TYPE_PINK_NOISE, variant, std::move(speakers),
            std::chrono::milliseconds(0), playingTime(info.length(), info.sample_rate())};
}

protocol::StimuliPrepare preparation(const Stimulus& stimulus, bool recording) {
    protocol::StimuliPrepare request;
    for (const int speaker : stimulus.speakerIndices())
        request.add_speakers(speaker);
    request.mutable_stimulus()->set_type(stimulus.type);
    request.mutable_stimulus()->set_variant(static_cast<std::uint32_t>(stimulus.variant));
    request.set_stream_recording(recording);
    return request;
}

std::uint64_t startTime(const Stimulus& stimulus) {
    if (stimulus.startIn.count() <= 0)
        return 0;
    const auto time = std::chrono::system_clock::now().time_since_epoch() + stimulus.startIn;
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

}  // namespace calibrate
