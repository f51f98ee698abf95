#pragma once

#include "calibrate/StimulusGains.h"
#include "calibrate/measurement/MicrophoneCalibration.h"
#include "calibrate/report/Calibration.h"
#include "calibrate/run/RoomRecorder.h"
#include "calibrate/run/SweepSeparation.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace calibrate::run {

/// Measures all speakers of a device, position by position of its microphone. Before the first one
/// it finds the gain at which they are neither too faint nor too loud.
class PositionMeasurement {
public:
    /// `gain`: dB, at which stimuli are to be played; none: it is found. `microphone`: its maker's
    /// calibration, or none. Must not outlive what it is made from.
    PositionMeasurement(RoomRecorder& recorder, const DeviceProfile& profile, StimulusGains& gains,
                        std::optional<double> gain,
                        const measurement::MicrophoneCalibration* microphone, Narrator& narrator);

    /// What each speaker's sweep told, in the device's order; all responses have one origin of
    /// time and are those at a stimulus gain of 0 dB. What may be better the next time is tried
    /// once more; results that are unusable all the same are the caller's concern (unusableText).
    std::vector<report::SweepResult> measure(const std::string& place);

    /// Every speaker's sweep once more, at the same gain, behind a sweep that does not count,
    /// during which `switchOn` is called. The results may be bad: the caller judges them.
    std::vector<report::SweepResult> measureAgain(const std::string& step,
                                                  const std::function<void()>& switchOn);

    /// In a sound file that `command` has the device play.
    std::vector<report::SweepResult> measureFile(const std::string& step,
                                                 const std::string& command);

private:
    struct Pass {
        std::vector<report::SweepResult> results;
        double peak{0};  ///< of full scale
        bool clipped{false};
    };

    Pass play(const std::string& step, const std::vector<double>& silence);
    Pass findLevel(const std::string& place, const std::vector<double>& silence);
    bool adjustGain(const Pass& pass);
    void setGain(double gain);
    double presentGain() const;
    std::vector<report::SweepResult> evaluate(const std::vector<double>& recording,
                                              const std::vector<double>& silence,
                                              const std::vector<std::size_t>& speakers,
                                              bool closing);
    report::SweepResult evaluateOne(SeparatedSweep part, const std::vector<double>& silence,
                                    const DeviceProfile::Speaker& speaker) const;
    void checkNoise(const std::vector<double>& silence);
    void tellResults(const std::string& place, const std::vector<report::SweepResult>& results);

    RoomRecorder& recorder_;
    const DeviceProfile& profile_;
    StimulusGains& gains_;
    std::optional<double> gain_;  // at which stimuli are played; none: not found yet
    const bool isGainGiven_;
    const measurement::MicrophoneCalibration* const microphone_;
    Narrator& narrator_;
    std::set<std::string> warned_;
    std::vector<double> silence_;  // of the last position
    double arrival_{0};  // s from the last recording's start until its first sweep is heard
};

/// The texts of all speakers' measurements that are not usable, each once; empty when all are.
std::string unusableText(const std::vector<report::SweepResult>& results);

}  // namespace calibrate::run
