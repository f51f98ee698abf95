#include "calibrate/Record.h"

#include "calibrate/JsonOutput.h"
#include "calibrate/LevelMeter.h"
#include "calibrate/Microphone.h"
#include "calibrate/StimulusGains.h"
#include "calibrate/Text.h"
#include "calibrate/WaveFileWriter.h"

#include <algorithm>
#include <cmath>

namespace calibrate {
namespace {

using Seconds = std::chrono::duration<double>;

/// How much longer a device records than its stimulus is, so that the room fades out.
constexpr Seconds kTail(1.5);

Json levelJson(double level) {
    return std::isfinite(level) ? Json(level) : Json();
}

/// The file that grows, its levels, and how far the whole thing is.
class Recording {
public:
    Recording(const RecordOptions& options, int sampleRate, std::optional<Stimulus> stimulus)
        : options_(options), rate_(sampleRate), stimulus_(std::move(stimulus)) {
        WaveFileWriter::check(options.file, options.overwrite);
    }

    bool isFull() const { return missing() == 0; }

    void add(std::span<const float> samples) {
        const auto count = std::min<std::uint64_t>(samples.size(), missing());
        const auto wanted = samples.first(static_cast<std::size_t>(count));
        if (!file_)
            file_.emplace(options_.file, rate_, options_.overwrite);
        file_->write(wanted);
        meter_.add(wanted);
    }

    void close() {
        if (file_)
            file_->close();
    }

    bool empty() const { return meter_.samples() == 0; }
    Seconds length() const {
        return Seconds(static_cast<double>(meter_.samples()) / static_cast<double>(rate_));
    }
    std::string name() const { return printable(options_.file.string()); }

    /// What there is of the recording when it ends before its time.
    std::string remainder() const {
        return empty() ? "nothing was recorded" : name() + " holds " + secondsText(length());
    }

    void show(ProgressBar& bar) const {
        const auto whole = expectedLength();
        const std::string step = "recording" + speakerText();
        if (whole)
            bar.update(length() / *whole, step);
        else
            bar.elapse(length().count(), step);
    }

    /// Throws DeviceError when there is less than the stimulus is long.
    void checkComplete() const {
        if (empty()) {
            throw DeviceError(DeviceError::Reason::failed,
                              "the device's microphone sent nothing: check that it is plugged in");
        }
        const bool whole =
            isFull() || !stimulus_ || stimulus_->repeats() || length() >= stimulusLength();
        if (!whole) {
            throw DeviceError(DeviceError::Reason::failed,
                              "the recording ended after " + secondsText(length()) + " of " +
                                  secondsText(stimulusLength()) +
                                  ": the device's player or its microphone was stopped");
        }
    }

    void report(std::uint64_t invalidSamples, bool complete, const Console& console) const {
        console.report(text(), json(invalidSamples, complete));
        if (const auto complaint = meter_.complaint())
            console.warn(*complaint);
        if (invalidSamples > 0) {
            console.warn(counted(invalidSamples, "sample") +
                         " from the device were no numbers; the file holds 0 for them");
        }
    }

private:
    std::uint64_t missing() const {
        const double wanted = options_.duration
                                  ? std::round(options_.duration->count() * rate_)
                                  : static_cast<double>(WaveFileWriter::kMaxSamples) + 1;
        return static_cast<std::uint64_t>(wanted) - meter_.samples();
    }

    Seconds stimulusLength() const {
        return stimulus_->length * static_cast<double>(stimulus_->speakers.size());
    }

    std::optional<Seconds> expectedLength() const {
        if (options_.duration || !stimulus_ || stimulus_->repeats())
            return options_.duration;
        return stimulusLength() + kTail;
    }

    std::string speakerText() const {
        if (!stimulus_ || stimulus_->length.count() <= 0)
            return "";
        const auto count = stimulus_->speakers.size();
        const auto played = static_cast<std::size_t>(length() / stimulus_->length);
        const auto speaker = stimulus_->repeats() ? played % count : std::min(played, count - 1);
        return ", " + describe(stimulus_->speakers[speaker]);
    }

    std::string text() const {
        return "Recorded " + secondsText(length()) + " at " + hertz(rate_) + " to " + name() +
               ": peak " + decibels(meter_.peak()) + ", RMS " + decibels(meter_.rms()) + ".";
    }

    Json json(std::uint64_t invalidSamples, bool complete) const {
        return {{"file", options_.file.string()},
                {"complete", complete},
                {"sample_rate_hz", rate_},
                {"samples", meter_.samples()},
                {"peak_db", levelJson(meter_.peak())},
                {"rms_db", levelJson(meter_.rms())},
                {"clipped_samples", meter_.clipped()},
                {"invalid_samples", invalidSamples}};
    }

    const RecordOptions& options_;
    const int rate_;
    const std::optional<Stimulus> stimulus_;
    std::optional<WaveFileWriter> file_;  // made with the first samples
    LevelMeter meter_;
};

void receive(SampleStream& stream, Recording& recording, const Console& console) {
    auto bar = console.progressBar();
    while (!recording.isFull()) {
        const auto samples = stream.read();
        if (samples.empty())
            break;
        recording.add(samples);
        recording.show(bar);
    }
}

/// Closes and reports what there is when the recording failed, and says so in the failure.
template <class Failure>
[[noreturn]] void endEarly(const Failure& failure, Recording& recording,
                           std::uint64_t invalidSamples, const Console& console) {
    recording.close();
    if (!recording.empty())
        recording.report(invalidSamples, false, console);
    const std::string what = std::string(failure.what()) + "; " + recording.remainder();
    if constexpr (std::is_same_v<Failure, DeviceError>)
        throw DeviceError(failure.reason(), what);
    else
        throw Failure(what);
}

}  // namespace

void record(EndpointClient& client, const RecordOptions& options, const Console& console) {
    WaveFileWriter::check(options.file, options.overwrite);
    const auto microphone = openMicrophone(client, options.microphone);
    const auto stimulus =
        options.stimulus ? std::optional(readStimulus(client, *options.stimulus, options.playing))
                         : std::nullopt;
    Recording recording(options, microphone->sampleRate(), stimulus);
    StimulusGains gains(client, [&](const std::string& text) { console.warn(text); });
    if (stimulus)
        gains.set(stimulus->speakerIndices(), options.playing.gain);
    const auto stream = stimulus ? microphone->record(*stimulus) : microphone->listen();
    try {
        receive(*stream, recording, console);
        recording.checkComplete();
    } catch (const DeviceError& error) {
        endEarly(error, recording, stream->invalidSamples(), console);
    } catch (const Interrupted& interrupted) {
        endEarly(interrupted, recording, stream->invalidSamples(), console);
    }
    recording.close();
    recording.report(stream->invalidSamples(), true, console);
}

}  // namespace calibrate
