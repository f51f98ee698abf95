#include "calibrate/run/RoomRecorder.h"

#include "calibrate/Play.h"
#include "calibrate/Text.h"

#include <algorithm>

namespace calibrate::run {
namespace {

/// How much longer than its sweeps a recording commonly is, and at most, in s.
constexpr double kTail = 2;
constexpr double kLongestTail = 60;

void append(std::vector<double>& recording, std::span<const float> samples) {
    recording.insert(recording.end(), samples.begin(), samples.end());
}

}  // namespace

std::vector<double> RoomRecorder::listen(double seconds, const std::string& step,
                                         const std::function<void(double)>& meanwhile) {
    const auto wanted = static_cast<std::size_t>(seconds * profile_.microphoneRate);
    narrator_.begin(step);
    auto stream = microphone_.listen();
    std::vector<double> recording;
    while (recording.size() < wanted) {
        const auto samples = stream->read();
        if (samples.empty()) {
            throw DeviceError(DeviceError::Reason::failed,
                              "the device ended the stream of its microphone: check that the "
                              "microphone is plugged in");
        }
        append(recording, samples);
        const auto recorded = static_cast<double>(recording.size());
        narrator_.progress(recorded / static_cast<double>(wanted), step);
        if (meanwhile)
            meanwhile(recorded / profile_.microphoneRate);
    }
    recording.resize(wanted);
    return recording;
}

std::vector<double> RoomRecorder::play(const std::vector<std::size_t>& speakers,
                                       const std::string& step,
                                       const std::function<void(double)>& meanwhile) {
    const double period = profile_.sweepPeriod();
    Stimulus stimulus;
    stimulus.variant = profile_.sweepVariant;
    stimulus.length = std::chrono::duration<double>(period);
    for (const auto speaker : speakers)
        stimulus.speakers.push_back(
            {static_cast<int>(speaker), profile_.speakers.at(speaker).name});
    const double played = period * static_cast<double>(speakers.size());
    const double rate = profile_.microphoneRate;

    narrator_.begin(step);
    auto stream = microphone_.record(stimulus);
    std::vector<double> recording;
    for (auto samples = stream->read(); !samples.empty(); samples = stream->read()) {
        append(recording, samples);
        const double recorded = static_cast<double>(recording.size()) / rate;
        if (recorded > played + kLongestTail)
            throw DeviceError(DeviceError::Reason::failed,
                              "the device does not end the recording of its sweeps");
        const auto current =
            std::min(static_cast<std::size_t>(recorded / period), speakers.size() - 1);
        narrator_.progress(recorded / (played + kTail),
                           step + ", " + describe(stimulus.speakers[current]));
        if (meanwhile)
            meanwhile(recorded);
    }
    warnOfInvalid(stream->invalidSamples());
    checkComplete(static_cast<double>(recording.size()) / rate, played);
    return recording;
}

void RoomRecorder::warnOfInvalid(std::uint64_t samples) {
    if (samples > 0)
        narrator_.warn(counted(samples, "sample") +
                       " from the device were no numbers, and count as silence");
}

void RoomRecorder::checkComplete(double recorded, double played) const {
    if (recorded == 0)
        throw DeviceError(DeviceError::Reason::failed,
                          "the device's microphone sent nothing: check that it is plugged in");
    if (recorded < played) {
        throw DeviceError(
            DeviceError::Reason::failed,
            "the recording ended after " + fixed(recorded, 1) + " s of " + fixed(played, 1) +
                " s: the device's player or its microphone was stopped. Leave the device alone "
                "while it measures, check the microphone's cable, and run again");
    }
}

}  // namespace calibrate::run
