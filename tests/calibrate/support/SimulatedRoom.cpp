#include "calibrate/support/SimulatedRoom.h"

#include "calibrate/design/ParallelFilter.h"
#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/SampleRate.h"
#include "calibrate/measurement/SoundFile.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>
#include <thread>

namespace {

namespace measurement = calibrate::measurement;

constexpr double kRate = 48'000;
constexpr std::size_t kBlock = 1'200;
constexpr double kTail = 1;        // s of a recording behind the last sweep
constexpr double kLatency = 0.01;  // s from the device to the loudspeaker

/// A room's mode: an oscillation that dies away within some 30 ms.
void addMode(std::vector<double>& response, std::size_t start, double frequency, double level) {
    for (std::size_t i = start; i < response.size(); ++i) {
        const double time = static_cast<double>(i - start) / kRate;
        response[i] +=
            level * std::exp(-time / 0.012) * std::sin(2 * std::numbers::pi * frequency * time);
    }
}

void addTo(std::vector<double>& sum, const std::vector<double>& part, std::size_t at) {
    sum.resize(std::max(sum.size(), at + part.size()));
    for (std::size_t i = 0; i < part.size(); ++i)
        sum[at + i] += part[i];
}

dio::endpoint::LogSweepInfo describe(const measurement::LogSweep& sweep) {
    dio::endpoint::LogSweepInfo info;
    info.set_sample_rate(static_cast<float>(sweep.sampleRate));
    info.set_start_frequency(static_cast<float>(sweep.startFrequency));
    info.set_end_frequency(static_cast<float>(sweep.endFrequency));
    info.set_length(static_cast<unsigned>(sweep.length));
    info.set_silence(static_cast<unsigned>(sweep.silence));
    info.set_fade_out_tail(sweep.fadeOutTail);
    info.set_num_periods(1);
    return info;
}

}  // namespace

SimulatedRoom::SimulatedRoom(EndpointDouble& device)
    : device_(device), sweep_{10, 24'000, 72'000, 14'400, 1, kRate, 300} {
    device.sweeps = {describe(sweep_)};
    device.onRecording = [this](Context* context, AudioWriter* writer) {
        return record(context, writer);
    };
}

grpc::Status SimulatedRoom::record(Context* context, AudioWriter* writer) {
    recorded_ = 0;
    const auto kind = device_.lastCallOf({"StartStreaming", "StartRecordingStimuli"});
    return kind == "StartStreaming" ? listen(context, writer) : playStimulus(context, writer);
}

grpc::Status SimulatedRoom::listen(Context* context, AudioWriter* writer) {
    if (musicFile && !device_.stored().empty()) {
        while (!std::filesystem::exists(*musicFile) &&
               send(context, writer, std::vector<double>(kBlock)))
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (std::filesystem::exists(*musicFile))
            send(context, writer, heardMusic());
    }
    while (send(context, writer, std::vector<double>(kBlock))) {
    }
    return grpc::Status::OK;
}

grpc::Status SimulatedRoom::playStimulus(Context* context, AudioWriter* writer) {
    const auto prepared = device_.prepared();
    const bool wasOn = device_.mode().filtering();
    const auto period = static_cast<std::size_t>(kPeriod * kRate);
    std::vector<double> rest;  // what is still to be heard of those before
    bool filtered = false;
    for (int i = 0; i < prepared.speakers_size(); ++i) {
        // Behind a sweep that does not count the client has switched the filter on.
        if (i == 1 && prepared.speakers(0) == prepared.speakers(1) && !wasOn)
            filtered = awaitFiltering(context) && filtersStimuli;
        addTo(rest, heardStimulus(prepared.speakers(i), filtered), 0);
        rest.resize(std::max(rest.size(), period));
        const auto middle = rest.begin() + static_cast<std::ptrdiff_t>(period);
        if (!send(context, writer, {rest.begin(), middle}))
            return grpc::Status::OK;
        rest.erase(rest.begin(), middle);
    }
    rest.resize(static_cast<std::size_t>(kTail * kRate));
    send(context, writer, rest);
    return grpc::Status::OK;
}

bool SimulatedRoom::awaitFiltering(Context* context) const {
    for (int i = 0; i < 10'000 && !device_.mode().filtering() && !context->IsCancelled(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return device_.mode().filtering();
}

/// False when the recording is over.
bool SimulatedRoom::send(Context* context, AudioWriter* writer, std::vector<double> heard) {
    if (recordingRate != kRate)
        heard = measurement::atSampleRate(heard, kRate, recordingRate);
    std::normal_distribution<double> noiseFloor(0, std::max(noise, 1e-30));
    for (std::size_t start = 0; start < heard.size(); start += kBlock) {
        if (context->IsCancelled() || (recordedFor && recorded_ >= *recordedFor))
            return false;
        const bool mute = heardFor && recorded_ >= *heardFor;
        std::vector<float> block(std::min(kBlock, heard.size() - start));
        for (std::size_t i = 0; i < block.size() && !mute; ++i) {
            const double sample = microphoneGain * heard[start + i] + noiseFloor(random_);
            block[i] = static_cast<float>(noise > 0 ? std::clamp(sample, -1.0, 1.0) : 0);
        }
        EndpointDouble::send(writer, block);
        recorded_ += static_cast<double>(block.size()) / kRate;
        if (onRecorded)
            onRecorded(recorded_);
    }
    return true;
}

std::vector<double> SimulatedRoom::heardStimulus(int speaker, bool filtered) const {
    const auto gains = device_.gains().stimuli;
    const auto found = gains.find(speaker);
    if (dead.count(speaker) > 0 || found == gains.end())
        return {};
    const auto sweep = measurement::sweepSamples(sweep_);
    std::vector<double> signal(sweep.begin(), sweep.begin() + static_cast<int>(sweep_.length));
    for (auto& sample : signal)
        sample *= std::pow(10.0, found->second / 20);
    auto heard = measurement::convolve(signal, response(speaker));
    return filtered ? measurement::convolve(heard, filter(speaker)) : heard;
}

std::vector<double> SimulatedRoom::heardMusic() const {
    const auto music = measurement::readSoundFile(*musicFile);
    std::vector<double> sum;
    for (std::size_t i = 0; i < music.channels.size(); ++i) {
        const int speaker = static_cast<int>(i);
        const auto heard = measurement::convolve(music.channels[i], response(speaker));
        addTo(sum, measurement::convolve(heard, filter(speaker)), 0);
    }
    return sum;
}

/// The direct sound, later and fainter from each further speaker, and some modes of the room.
std::vector<double> SimulatedRoom::response(int speaker) const {
    const double level = 0.6 - 0.1 * speaker;
    const auto direct = static_cast<std::size_t>((kLatency + 0.005 + 0.001 * speaker) * kRate);
    std::vector<double> response(direct + static_cast<std::size_t>(0.06 * kRate));
    response[direct] = level;
    addMode(response, direct + 200, 80 + 15 * speaker, 0.003 * level);
    addMode(response, direct + 300, 400 - 30 * speaker, 0.01 * level);
    if (changed.count(speaker) > 0 && !device_.stored().empty())
        addMode(response, direct + 20, 1'000, 0.02 * level);
    return response;
}

/// The impulse response of the filter in the active slot, with its alignment.
std::vector<double> SimulatedRoom::filter(int speaker) const {
    const auto stored = device_.stored();
    const auto slot = stored.find(device_.activeSlot());
    if (slot == stored.end())
        return {1};
    const auto& design = slot->second;
    const std::pair cell(static_cast<unsigned>(speaker), 0U);
    calibrate::design::ParallelFilter filter{kRate, design.taps.at(cell), {}};
    for (const auto& biquad : design.sections.at(cell))
        filter.sections.push_back({biquad.a1(), biquad.a2(), biquad.b0(), biquad.b1()});
    auto samples = filter.impulseResponse(16'384);
    const auto alignment = design.alignment.find(speaker);
    if (alignment == design.alignment.end())
        return samples;
    for (auto& sample : samples)
        sample *= std::pow(10.0, static_cast<double>(alignment->second.gain()) / 20);
    const double delay = static_cast<double>(alignment->second.delay()) / 1000;
    samples.insert(samples.begin(), static_cast<std::size_t>(std::lround(delay * kRate)), 0);
    return samples;
}
