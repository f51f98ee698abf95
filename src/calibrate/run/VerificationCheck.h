#pragma once

#include "calibrate/measurement/FrequencyCurve.h"
#include "calibrate/report/Calibration.h"

namespace calibrate::run {

/// How far a measurement through the filter may be from its prediction.
struct VerificationTolerance {
    double good{1};    ///< dB, largest difference at 1/6 octave in the corrected range
    double usable{3};  ///< dB; beyond it something is wrong
    double level{3};   ///< dB, difference of the whole level
};

/// What a speaker tells of the way that its sweep has taken. One that hardly needs a correction
/// sounds alike either way.
enum class Path { unknown, throughFilter, pastFilter };

struct JudgedVerification {
    report::Verification verification;
    Path path{Path::unknown};
};

/// Judges a speaker's sweep through the filter: `correction` says what was predicted, `before` is
/// the same speaker at the same place without the filter. The text names the speaker and says what
/// to do.
JudgedVerification judge(report::SweepResult sweep, const report::SweepResult& before,
                         const design::SpeakerCorrection& correction,
                         const VerificationTolerance& tolerance = {});

}  // namespace calibrate::run
