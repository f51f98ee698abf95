#pragma once

#include "calibrate/design/SystemDesign.h"
#include "calibrate/measurement/Deconvolution.h"
#include "calibrate/measurement/ImpulseResponse.h"
#include "calibrate/measurement/LogSweep.h"
#include "calibrate/measurement/Noise.h"
#include "calibrate/measurement/RecordingCheck.h"

#include <optional>
#include <string>
#include <vector>

namespace calibrate::report {

/// How a device names itself. Texts come from the network and may hold anything.
struct DeviceIdentity {
    std::string name;
    std::string manufacturer;
    std::string model;
    std::string uuid;
    std::string address;  ///< where it was reached: "192.168.1.20:5002"
};

/// With what was measured.
struct Microphone {
    std::string name;
    std::string calibration;  ///< name of the maker's file; empty: none
};

/// A program, or a part of the device, and its version.
struct Version {
    std::string of;
    std::string version;
};

/// What one sweep of a loudspeaker told at one place.
struct SweepResult {
    measurement::Recording recording;       ///< without samples: not kept
    measurement::ImpulseResponse response;  ///< the microphone's deviation taken out
    measurement::RecordingChecks checks;
    std::optional<double> level;  ///< dB of full scale, the recording
    std::optional<double> noise;  ///< dB of full scale, the silence
    std::vector<measurement::BandRatio> signalToNoise;
    std::vector<measurement::Distortion> distortion;
};

/// Takes all figures out of a recording that was deconvolved and checked. `response` is the
/// deconvolution's, or what the microphone's calibration made of it.
SweepResult sweepResult(measurement::Recording recording, const measurement::LogSweep& sweep,
                        const measurement::Deconvolution& deconvolution,
                        measurement::RecordingChecks checks, measurement::ImpulseResponse response);

/// A loudspeaker measured once more, through the filter, at the first position.
struct Verification {
    SweepResult sweep;
    measurement::Verdict verdict{measurement::Verdict::good};
    std::string text;  ///< for a person: what was found, and what to do about it; may be empty
};

struct Speaker {
    std::string name;
    std::string kind;                    ///< "full range", "subwoofer"; may be empty
    std::vector<SweepResult> positions;  ///< the first one leads in time
    std::optional<Verification> verification;
};

/// All that a calibration found and did, for the report. A calibration that came to an end early
/// has fewer parts, and its report too.
struct Calibration {
    long long time{0};  ///< ms since the Unix epoch, the start
    std::vector<Version> versions;
    DeviceIdentity device;
    std::optional<unsigned> slot;  ///< where the filter was stored
    std::string slotName;
    Microphone microphone;
    std::optional<double> latency;  ///< s from play to record without any way through the air;
                                    ///< unless it is known distances are told as differences
    std::string target;             ///< name or file of options.correction.target
    design::SystemOptions options;  ///< with which the design was made
    std::vector<Speaker> speakers;
    std::optional<design::SystemDesign> design;  ///< its speakers are those above, in their order
    std::vector<std::string> warnings;           ///< besides the design's
};

}  // namespace calibrate::report
