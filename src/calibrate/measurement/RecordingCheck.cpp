#include "calibrate/measurement/RecordingCheck.h"

#include "calibrate/Text.h"
#include "calibrate/measurement/BandArrival.h"
#include "calibrate/measurement/Noise.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <span>

namespace calibrate::measurement {
namespace {

using Subject = Check::Subject;

constexpr double kDeadMicrophone = -110;  // dB of full scale
constexpr double kLoudRoom = -45;         // dB of full scale
constexpr double kSweepIsThere = 28;      // dB from the response's noise to its peak
constexpr double kHeardAnything = 6;      // dB above the silence
constexpr double kPoorBand = 20;          // dB
constexpr double kUselessBand = 6;        // dB
constexpr std::size_t kUselessBands = 4;
constexpr double kFarMoreConcentrated = 4;
constexpr double kLostTime = 0.006;    // s by which one octave may come after another
constexpr double kMuchClipped = 1e-3;  // part of all samples

/// A microphone that is not there gives zeros or a constant.
bool isConstant(std::span<const double> samples) {
    return std::ranges::all_of(samples, [&](double sample) { return sample == samples.front(); });
}

Check checkSignal(const Recording& recording) {
    const double level = levelOf(recording.samples);
    Check check{Subject::signal, Verdict::good, level,
                "The microphone's signal has " + fixed(level, 1) + " dB of full scale."};
    if (isConstant(recording.samples) || level < kDeadMicrophone) {
        check.verdict = Verdict::unusable;
        check.text =
            "The microphone delivers no signal at all. Check that it is plugged in, "
            "switched on and chosen as the input.";
    }
    return check;
}

Check checkClipping(const Recording& recording) {
    const std::size_t clipped = clippedSamples(recording.samples);
    Check check{Subject::clipping, Verdict::good, static_cast<double>(clipped),
                "Nothing is clipped."};
    if (clipped == 0)
        return check;
    const double part =
        static_cast<double>(clipped) / static_cast<double>(recording.samples.size());
    check.verdict = part > kMuchClipped ? Verdict::unusable : Verdict::poor;
    check.text = counted(clipped, "sample") + " of the recording of \"" + recording.speaker +
                 "\" are clipped. Lower the volume or the microphone's gain and measure again.";
    return check;
}

Check checkNoise(const Recording& recording) {
    const double level = levelOf(recording.silence);
    Check check{Subject::noise, Verdict::good, level,
                "The room's noise has " + fixed(level, 1) + " dB of full scale."};
    if (level > kLoudRoom) {
        check.verdict = Verdict::poor;
        check.text = "The room is loud, or the microphone's gain is high: " + fixed(level, 1) +
                     " dB of full scale without any sweep. Switch off what makes noise.";
    }
    return check;
}

/// s from the first octave's arrival to the last one's.
double spread(const std::vector<BandArrival>& arrivals) {
    if (arrivals.empty())
        return 0;
    const auto [first, last] = std::ranges::minmax(arrivals, {}, &BandArrival::time);
    return last.time - first.time;
}

/// The largest sample's share of a response's energy.
double concentration(const ImpulseResponse& response) {
    double largest = 0;
    double energy = 1e-300;
    for (const double sample : response.samples) {
        largest = std::max(largest, sample * sample);
        energy += sample * sample;
    }
    return largest / energy;
}

/// The sweep as a recording at `ratio` times the right rate holds it.
LogSweep atOtherSpeed(LogSweep sweep, double ratio, double highest) {
    sweep.sampleRate *= ratio;
    sweep.startFrequency *= ratio;
    sweep.endFrequency *= ratio;
    sweep.fadeOutTail = sweep.endFrequency > highest ? 0 : sweep.fadeOutTail * ratio;
    return sweep;
}

/// Sample rate (Hz) at which the recording would make sense, if another one does: the response is
/// far more of one piece.
std::optional<double> otherRate(const Recording& recording, const LogSweep& sweep) {
    const auto concentrationAt = [&](double ratio) {
        const auto played = atOtherSpeed(sweep, ratio, recording.sampleRate / 2);
        return concentration(deconvolve(recording.samples, recording.sampleRate, played).response);
    };
    double most = kFarMoreConcentrated * concentrationAt(1);
    std::optional<double> rate;
    for (const double ratio : {44.1 / 48, 48 / 44.1, 0.5, 2.0}) {
        const double found = concentrationAt(ratio);
        if (found <= most)
            continue;
        most = found;
        rate = recording.sampleRate / ratio;
    }
    return rate;
}

std::string wrongRate(const Recording& recording, double rate) {
    return "The recording's speed is wrong: it makes sense at " + hertz(rate) + ", not at " +
           hertz(recording.sampleRate) + ". Set the microphone's sample rate right.";
}

std::string whyNoSweep(const Recording& recording, const LogSweep& sweep) {
    const double heard = levelOf(recording.samples) - levelOf(recording.silence);
    if (!recording.silence.empty() && heard < kHeardAnything) {
        return "Nothing arrived from \"" + recording.speaker +
               "\". Check that this loudspeaker is connected and plays, and that the volume is up.";
    }
    if (const auto rate = otherRate(recording, sweep))
        return wrongRate(recording, *rate);
    return "Something was recorded for \"" + recording.speaker +
           "\", but the sweep is not in it. Check that nothing else plays, and measure again.";
}

Check checkSweep(const Recording& recording, const LogSweep& sweep,
                 const Deconvolution& deconvolution) {
    const double ratio = deconvolution.peakToNoise;
    if (ratio >= kSweepIsThere) {
        return {
            Subject::sweep, Verdict::good, ratio,
            "The sweep of \"" + recording.speaker + "\" stands out by " + fixed(ratio, 0) + " dB."};
    }
    return {Subject::sweep, Verdict::unusable, ratio, whyNoSweep(recording, sweep)};
}

/// s of the sweep that the recording holds: it ends early, or falls silent before the sweep does.
double heardOfSweep(const Recording& recording, const LogSweep& sweep, double arrival) {
    auto last = recording.samples.size();
    while (last > 0 && recording.samples[last - 1] == 0)
        --last;
    const double end = static_cast<double>(last) / recording.sampleRate;
    return std::min(end - arrival, sweep.duration());
}

Check checkCompleteness(const Recording& recording, const LogSweep& sweep,
                        const Deconvolution& deconvolution) {
    const auto& response = deconvolution.response;
    const double heard = heardOfSweep(recording, sweep,
                                      std::max(response.start + DeconvolutionWindow{}.before, 0.0));
    Check check{Subject::completeness, Verdict::good, heard, "The sweep is there to its end."};
    const double missing = sweep.duration() - heard;
    if (missing > 0.01 * sweep.duration()) {
        const double reached =
            sweep.startFrequency * std::pow(sweep.endFrequency / sweep.startFrequency,
                                            std::max(heard, 0.0) / sweep.duration());
        check.verdict = Verdict::unusable;
        check.text = "The recording of \"" + recording.speaker + "\" ends " + fixed(missing, 1) +
                     " s before the sweep does, at " + hertz(std::round(reached)) +
                     ". Let the recording run until the sweep is over.";
    }
    return check;
}

std::optional<Check> checkContinuity(const Recording& recording, const LogSweep& sweep,
                                     const Deconvolution& deconvolution) {
    auto arrivals = bandArrivals(deconvolution.response);
    std::erase_if(arrivals, [&](const BandArrival& arrival) {
        return !recording.range.holdsOctave(arrival.frequency);
    });
    if (arrivals.empty())
        return {};
    Check check{Subject::continuity, Verdict::good, 0, "No samples are lost."};
    const auto [first, last] = std::ranges::minmax_element(arrivals, {}, &BandArrival::time);
    check.value = spread(arrivals);
    if (check.value <= kLostTime)
        return check;
    check.verdict = Verdict::unusable;
    if (const auto rate = otherRate(recording, sweep)) {
        check.text = wrongRate(recording, *rate);
    } else {
        check.text = "The recording of \"" + recording.speaker + "\" jumps by " +
                     fixed(1000 * check.value, 1) + " ms between " + hertz(first->frequency) +
                     " and " + hertz(last->frequency) +
                     ": samples were lost on the way. Close other programs and measure again.";
    }
    return check;
}

std::string bandList(const std::vector<BandRatio>& bands) {
    std::string list;
    for (const auto& band : bands)
        list += (list.empty() ? "" : ", ") + hertz(band.frequency) + " (" + fixed(band.ratio, 0) +
                " dB)";
    return list;
}

std::optional<Check> checkBandNoise(const Recording& recording, const LogSweep& sweep) {
    auto bands = signalToNoise(recording.samples, recording.silence, recording.sampleRate, sweep);
    std::erase_if(
        bands, [&](const BandRatio& band) { return !recording.range.holdsOctave(band.frequency); });
    if (bands.empty())
        return {};
    Check check{Subject::bandNoise, Verdict::good, 0, "Every octave stands out of the noise."};
    const std::size_t fatal = std::min(kUselessBands, bands.size());
    check.value = std::ranges::min_element(bands, {}, &BandRatio::ratio)->ratio;
    std::erase_if(bands, [](const BandRatio& band) { return band.ratio >= kPoorBand; });
    const auto useless = static_cast<std::size_t>(std::ranges::count_if(
        bands, [](const BandRatio& band) { return band.ratio < kUselessBand; }));
    if (bands.empty())
        return check;
    check.verdict = useless >= fatal ? Verdict::unusable : Verdict::poor;
    check.text = "\"" + recording.speaker + "\" hardly stands out of the noise at " +
                 bandList(bands) + ". Turn the volume up, or make the room quieter.";
    return check;
}

}  // namespace

bool PlayedRange::holdsOctave(double middle) const {
    return middle * std::sqrt(0.5) >= lowest && middle * std::sqrt(2.0) <= highest;
}

std::string subjectName(Subject subject) {
    constexpr std::array kNames{"signal",       "clipping",   "noise",     "sweep",
                                "completeness", "continuity", "band_noise"};
    return kNames.at(static_cast<std::size_t>(subject));
}

std::string verdictName(Verdict verdict) {
    constexpr std::array kNames{"good", "poor", "unusable"};
    return kNames.at(static_cast<std::size_t>(verdict));
}

Verdict RecordingChecks::worst() const {
    const auto found = std::ranges::max_element(checks, {}, &Check::verdict);
    return found == checks.end() ? Verdict::good : found->verdict;
}

const std::string& RecordingChecks::summary() const {
    return std::ranges::max_element(checks, {}, &Check::verdict)->text;
}

RecordingChecks checkRecording(const Recording& recording, const LogSweep& sweep,
                               const Deconvolution& deconvolution) {
    RecordingChecks result;
    const auto add = [&result](std::optional<Check> check) {
        if (!check)
            return true;
        result.checks.push_back(*std::move(check));
        return result.checks.back().verdict != Verdict::unusable;
    };
    // Each check may rely on those before it; && ends the row at the first that is unusable.
    (void)(add(checkSignal(recording)) && add(checkClipping(recording)) &&
           add(checkNoise(recording)) && add(checkSweep(recording, sweep, deconvolution)) &&
           add(checkCompleteness(recording, sweep, deconvolution)) &&
           add(checkContinuity(recording, sweep, deconvolution)) &&
           add(checkBandNoise(recording, sweep)));
    return result;
}

}  // namespace calibrate::measurement
