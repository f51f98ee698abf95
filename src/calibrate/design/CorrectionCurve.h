#pragma once

#include "calibrate/design/LogGrid.h"
#include "calibrate/design/SmoothedPower.h"
#include "calibrate/measurement/FrequencyCurve.h"
#include "calibrate/measurement/ImpulseResponse.h"

#include <vector>

namespace calibrate::design {

/// What a correction may do. Boost and cut count from the gain that the filter has for pink noise
/// within the range, so that they mean the same whatever the level: no frequency is raised by more
/// than the boost above where the correction leaves the band as a whole. A correction that may
/// boost too little for that still cuts what lies above the level of half of the band.
struct Limits {
    double lowest{20};           ///< Hz, the range that is corrected
    double highest{18'000};      ///< Hz
    double maxBoost{6};          ///< dB
    double maxCut{24};           ///< dB
    double maxGroupDelay{0.15};  ///< s, within the range
    double headroom{0};  ///< dB, the largest gain of all that a signal meets, boost included
};

struct CorrectionOptions {
    measurement::FrequencyCurve target;
    Limits limits;
    double smoothing{1.0 / 6};  ///< octaves
    FrequencyDependentWindow window;
};

/// Gains of a correction within its range.
struct CorrectionCurve {
    LogGrid grid;
    std::vector<double> gains;  ///< dB, about 0 for pink noise
    double lowest;              ///< Hz, the range
    double highest;             ///< Hz

    /// dB at any frequency from 0 Hz. Below the range the correction fades out within half an
    /// octave. Above it, too, or, where the range reaches the end of hearing, into a low-pass: a
    /// measurement's uppermost band holds nothing but its own ringing.
    double gain(double frequency, double sampleRate) const;

    /// dB from the gain for pink noise to the largest one.
    double boost() const;
};

/// The correction of a loudspeaker that was measured at these positions: the inverse of the
/// smoothed response within the limits.
CorrectionCurve correctionCurve(const std::vector<measurement::ImpulseResponse>& positions,
                                const CorrectionOptions& options);

/// The curve with other gains (dB, one for each point of its grid) added, within the same limits.
CorrectionCurve adjusted(const CorrectionCurve& curve, const std::vector<double>& gains,
                         const Limits& limits);

/// The same curve with less detail: each gain the mean over `octaves`.
CorrectionCurve coarser(const CorrectionCurve& curve, double octaves);

}  // namespace calibrate::design
