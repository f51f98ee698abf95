#include "calibrate/report/TestCalibration.h"

#include <cmath>
#include <numbers>

namespace calibrate::report {
namespace {

using measurement::Check;
using measurement::Verdict;

constexpr double kRate = 48'000;
constexpr std::size_t kLength = 24'000;
constexpr std::size_t kArrival = 480;

SweepResult sweepOf(const measurement::ImpulseResponse& response) {
    SweepResult sweep;
    sweep.response = response;
    sweep.level = -20.5;
    sweep.noise = -63.25;
    sweep.checks.checks = {
        {Check::Subject::clipping, Verdict::good, 0, "Nothing is clipped."},
        {Check::Subject::noise, Verdict::good, -63.25, "The room's noise has -63.3 dB."}};
    sweep.signalToNoise = {{125, 40}, {1000, 55}};
    sweep.distortion = {{2, -50}, {3, -60}};
    return sweep;
}

}  // namespace

measurement::ImpulseResponse roomResponse(unsigned seed) {
    std::vector<double> samples(kLength);
    samples[kArrival] = 0.5;
    samples[kArrival + 200 + 37 * seed] = 0.2;
    const double decay = std::log(1000.0) / (0.5 * kRate);
    for (std::size_t i = kArrival; i < kLength; ++i) {
        const auto n = static_cast<double>(i - kArrival);
        samples[i] +=
            0.005 * std::exp(-decay * n) * std::sin(2 * std::numbers::pi * 50 * n / kRate);
    }
    return {kRate, samples, 0};
}

Speaker measuredSpeaker(const std::string& name, unsigned seed, std::size_t positions) {
    Speaker speaker{name, "full range", {}, {}};
    for (std::size_t i = 0; i < positions; ++i)
        speaker.positions.push_back(sweepOf(roomResponse(seed + 3 * static_cast<unsigned>(i))));
    return speaker;
}

Calibration measuredCalibration(const std::vector<std::string>& names) {
    Calibration calibration;
    calibration.time = 1'714'566'600'000;
    calibration.versions = {{"vesk-calibrate", "1.2.3"}};
    calibration.device = {"Streamer", "Maker", "Model", "uuid", "127.0.0.1:5002"};
    calibration.slot = 2;
    calibration.target = "flat";
    unsigned seed = 0;
    for (const auto& name : names)
        calibration.speakers.push_back(measuredSpeaker(name, seed++));
    return calibration;
}

Calibration wholeCalibration(const std::vector<std::string>& names) {
    Calibration calibration = measuredCalibration(names);
    calibration.options.capacities = {{kRate, 200, 10}};
    std::vector<design::MeasuredSpeaker> measured;
    for (const auto& speaker : calibration.speakers)
        measured.push_back({speaker.name, false, 0, {speaker.positions.front().response}});
    calibration.design = design::designSystem(measured, calibration.options);
    for (std::size_t i = 0; i < measured.size(); ++i)
        calibration.speakers[i].verification = Verification{
            sweepOf(calibration.design->speakers[i].predicted), Verdict::good, "Fine."};
    return calibration;
}

const Calibration& stereoCalibration() {
    static const Calibration calibration = wholeCalibration({"Front left", "Front right"});
    return calibration;
}

}  // namespace calibrate::report
