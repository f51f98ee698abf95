#include "calibrate/run/PositionMeasurement.h"

#include "calibrate/Text.h"
#include "calibrate/measurement/Arrival.h"
#include "calibrate/measurement/Noise.h"
#include "calibrate/measurement/SoundFile.h"
#include "calibrate/run/PlayCommand.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numeric>

namespace calibrate::run {
namespace {

using measurement::Check;
using measurement::Verdict;
using report::SweepResult;

constexpr double kUnheard = 6;      // dB above the silence, less is nothing
constexpr double kListening = 1.5;  // s

// Levels of the microphone's largest sample, dB of full scale.
constexpr double kOverdriven = -0.2;
constexpr double kWanted = -10;
constexpr double kFaint = -20;

constexpr double kStarting = 4;  // s that a player may take to begin
constexpr double kStepDown = 6;  // dB after a recording that was too loud
constexpr int kMostPasses = 6;

std::vector<std::size_t> allSpeakers(const DeviceProfile& profile) {
    std::vector<std::size_t> speakers(profile.speakers.size());
    std::iota(speakers.begin(), speakers.end(), std::size_t{0});
    return speakers;
}

double peakLevel(const std::vector<double>& samples) {
    return 20 * std::log10(std::max(measurement::largestSample(samples), 1e-15));
}

/// A folder for a moment.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "vesk-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw OutputError("no folder can be made in " + printable(name));
        path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// What the device plays as stimuli of this gain (dB): a channel for each speaker, one after the
/// other.
measurement::SoundFile sweepsInTurn(const DeviceProfile& profile, double gain) {
    const auto sweep = measurement::sweepSamples(profile.sweep);
    const double factor = std::pow(10.0, gain / 20);
    const std::size_t count = profile.speakers.size();
    measurement::SoundFile file{profile.sweep.sampleRate, {}};
    file.channels.assign(count, std::vector<double>(count * sweep.size()));
    for (std::size_t i = 0; i < count; ++i) {
        std::ranges::transform(sweep, file.channels[i].begin() + std::ptrdiff_t(i * sweep.size()),
                               [factor](float sample) { return factor * double{sample}; });
    }
    return file;
}

/// What cannot be better when it is tried again.
bool isLasting(const SweepResult& result) {
    const auto& checks = result.checks.checks;
    return std::ranges::any_of(checks, [](const Check& check) {
        return check.verdict == Verdict::unusable && (check.subject == Check::Subject::signal ||
                                                      check.subject == Check::Subject::clipping);
    });
}

bool isUnusable(const SweepResult& result) {
    return result.checks.worst() == Verdict::unusable;
}

/// The microphone works, and recorded nothing but the room's noise.
bool isUnheard(const SweepResult& result) {
    const auto isNoSweep = [](const Check& check) {
        return check.verdict == Verdict::unusable && check.subject == Check::Subject::sweep;
    };
    return std::ranges::any_of(result.checks.checks, isNoSweep) && result.level && result.noise &&
           *result.level - *result.noise < kUnheard;
}

Json json(const SweepResult& result) {
    Json checks = Json::array();
    for (const auto& check : result.checks.checks) {
        checks.push_back({{"subject", measurement::subjectName(check.subject)},
                          {"verdict", measurement::verdictName(check.verdict)},
                          {"text", check.text}});
    }
    return {{"speaker", result.recording.speaker},
            {"verdict", measurement::verdictName(result.checks.worst())},
            {"level_db", result.level.value_or(0)},
            {"checks", checks}};
}

}  // namespace

PositionMeasurement::PositionMeasurement(RoomRecorder& recorder, const DeviceProfile& profile,
                                         StimulusGains& gains, std::optional<double> gain,
                                         const measurement::MicrophoneCalibration* microphone,
                                         Narrator& narrator)
    : recorder_(recorder),
      profile_(profile),
      gains_(gains),
      gain_(gain),
      isGainGiven_(gain.has_value()),
      microphone_(microphone),
      narrator_(narrator) {
    setGain(gain.value_or(profile.stimulusGain.minimum()));
}

std::vector<SweepResult> PositionMeasurement::measure(const std::string& place) {
    silence_ = recorder_.listen(kListening, "listening to the room");
    checkNoise(silence_);
    Pass pass = findLevel(place, silence_);
    const bool isLost = std::ranges::any_of(pass.results, isUnusable) &&
                        std::ranges::none_of(pass.results, isLasting);
    if (isLost) {
        narrator_.warn(unusableText(pass.results) + " It is tried once more.");
        pass = play("measuring " + place + " again", silence_);
    }
    tellResults(place, pass.results);
    return std::move(pass.results);
}

std::vector<SweepResult> PositionMeasurement::measureAgain(const std::string& step,
                                                           const std::function<void()>& switchOn) {
    auto order = allSpeakers(profile_);
    order.insert(order.begin(), order.front());
    const double moment = arrival_ + profile_.sweepPeriod() / 4;
    bool switched = false;
    if (recorder_.drifts())
        order.push_back(order.front());
    const auto recording = recorder_.play(order, step, [&](double recorded) {
        if (switched || recorded < moment)
            return;
        switched = true;
        switchOn();
    });
    auto results = evaluate(recording, silence_, order, recorder_.drifts());
    results.erase(results.begin());
    return results;
}

std::vector<SweepResult> PositionMeasurement::measureFile(const std::string& step,
                                                          const std::string& command) {
    const auto speakers = allSpeakers(profile_);
    const TemporaryFolder folder;
    const auto file = folder.path() / "verification.wav";
    measurement::writeSoundFile(file, sweepsInTurn(profile_, presentGain()));
    const double length = profile_.sweepPeriod() * static_cast<double>(speakers.size());
    std::optional<PlayCommand> playing;
    const auto recording = recorder_.listen(length + kStarting, step, [&](double) {
        if (playing)
            playing->check();
        else
            playing.emplace(command, file);
    });
    return evaluate(recording, silence_, speakers, false);
}

/// Plays, and changes the gain, until the level is right or cannot be.
PositionMeasurement::Pass PositionMeasurement::findLevel(const std::string& place,
                                                         const std::vector<double>& silence) {
    for (int passes = 1;; ++passes) {
        const bool known = gain_.has_value();
        Pass pass = play((known ? "measuring " : "checking the level, ") + place, silence);
        const bool again = passes < kMostPasses && !isGainGiven_ && adjustGain(pass);
        if (!again)
            return pass;
    }
}

/// Whether another gain is worth another try; sets it.
bool PositionMeasurement::adjustGain(const Pass& pass) {
    const double least = profile_.stimulusGain.minimum();
    const double present = presentGain();
    double wanted = present;
    const bool heard = !std::ranges::all_of(pass.results, isUnusable);
    if (pass.clipped)
        wanted = std::max(present - kStepDown, least);
    else if (!gain_ && heard && pass.peak < kFaint)
        wanted = std::min(present + kWanted - pass.peak, profile_.stimulusGain.maximum());
    gain_ = wanted;
    if (wanted == present)
        return false;
    narrator_.tell("level",
                   "The microphone hears up to " + decibels(pass.peak) +
                       " of full scale: stimuli are played at " + decibels(wanted) + ".",
                   {{"peak_db", pass.peak}, {"stimulus_gain_db", wanted}});
    setGain(wanted);
    return true;
}

double PositionMeasurement::presentGain() const {
    return gain_.value_or(profile_.stimulusGain.minimum());
}

void PositionMeasurement::setGain(double gain) {
    std::vector<int> speakers(profile_.speakers.size());
    std::iota(speakers.begin(), speakers.end(), 0);
    gains_.set(speakers, gain);
}

PositionMeasurement::Pass PositionMeasurement::play(const std::string& step,
                                                    const std::vector<double>& silence) {
    auto speakers = allSpeakers(profile_);
    if (recorder_.drifts())
        speakers.push_back(speakers.front());
    const auto recording = recorder_.play(speakers, step);
    Pass pass;
    pass.peak = peakLevel(recording);
    pass.clipped = pass.peak > kOverdriven || measurement::clippedSamples(recording) > 0;
    narrator_.progress(1, step + ", calculating");
    pass.results = evaluate(recording, silence, speakers, recorder_.drifts());
    narrator_.end();
    return pass;
}

std::vector<SweepResult> PositionMeasurement::evaluate(const std::vector<double>& recording,
                                                       const std::vector<double>& silence,
                                                       const std::vector<std::size_t>& speakers,
                                                       bool closing) {
    auto separated = separateSweeps(recording, profile_.microphoneRate, profile_.sweep,
                                    speakers.size(), closing);
    arrival_ = separated.arrival;
    std::vector<SweepResult> results;
    for (std::size_t i = 0; i < speakers.size() - (closing ? 1 : 0); ++i) {
        results.push_back(
            evaluateOne(std::move(separated.parts[i]), silence, profile_.speakers[speakers[i]]));
    }
    return results;
}

SweepResult PositionMeasurement::evaluateOne(SeparatedSweep part,
                                             const std::vector<double>& silence,
                                             const DeviceProfile::Speaker& speaker) const {
    measurement::Recording recording{speaker.name, static_cast<double>(profile_.microphoneRate),
                                     silence, std::move(part.samples), speaker.range()};
    auto checks = measurement::checkRecording(recording, profile_.sweep, part.deconvolution);
    auto response = part.deconvolution.response;
    response.start += part.origin;
    for (auto& sample : response.samples)
        sample *= std::pow(10.0, -presentGain() / 20);
    if (microphone_)
        response = measurement::calibrated(response, *microphone_);
    return report::sweepResult(std::move(recording), profile_.sweep, part.deconvolution,
                               std::move(checks), std::move(response));
}

void PositionMeasurement::checkNoise(const std::vector<double>& silence) {
    const double level = measurement::levelOf(silence);
    narrator_.tell("noise", "The room's noise is at " + decibels(level) + " of full scale.",
                   {{"noise_db", level}});
    if (measurement::clippedSamples(silence) > 0) {
        throw DeviceError(DeviceError::Reason::failed,
                          "the microphone is overdriven although nothing is played: make the room "
                          "quieter, or lower the microphone's gain");
    }
}

void PositionMeasurement::tellResults(const std::string& place,
                                      const std::vector<SweepResult>& results) {
    for (const auto& result : results) {
        Json details = json(result);
        details["place"] = place;
        narrator_.tell("measured", "", details);
        const auto& text = result.checks.summary();
        if (result.checks.worst() == Verdict::poor && warned_.insert(text).second)
            narrator_.warn(text);
    }
}

std::string unusableText(const std::vector<SweepResult>& results) {
    std::vector<std::string> texts;
    for (const auto& result : results) {
        const bool known = !texts.empty() && std::ranges::count(texts, result.checks.summary()) > 0;
        if (isUnusable(result) && !known)
            texts.push_back(result.checks.summary());
    }
    std::string all;
    for (const auto& text : texts)
        all += (all.empty() ? "" : " ") + text;
    if (results.size() > 1 && std::ranges::all_of(results, isUnheard))
        all +=
            " If they do play, the microphone that listens is another one: choose it with --mic.";
    return all;
}

}  // namespace calibrate::run
