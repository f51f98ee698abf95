#include "calibrate/report/Calibration.h"

#include <utility>

namespace calibrate::report {

SweepResult sweepResult(measurement::Recording recording, const measurement::LogSweep& sweep,
                        const measurement::Deconvolution& deconvolution,
                        measurement::RecordingChecks checks,
                        measurement::ImpulseResponse response) {
    SweepResult result;
    result.level = measurement::levelOf(recording.samples);
    if (!recording.silence.empty())
        result.noise = measurement::levelOf(recording.silence);
    result.signalToNoise = measurement::signalToNoise(recording.samples, recording.silence,
                                                      recording.sampleRate, sweep);
    result.distortion = deconvolution.distortion;
    result.recording = std::move(recording);
    result.response = std::move(response);
    result.checks = std::move(checks);
    return result;
}

}  // namespace calibrate::report
