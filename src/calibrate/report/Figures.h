#pragma once

#include "calibrate/measurement/PowerSpectrum.h"
#include "calibrate/report/Calibration.h"
#include "calibrate/report/DecayTimes.h"

#include <optional>
#include <string>
#include <vector>

namespace calibrate::report {

/// What a calibration did for one loudspeaker. All at the first position, where it is verified.
struct SpeakerFigures {
    double lowest{30};  ///< Hz, the band in which it is judged
    double highest{16'000};
    std::optional<measurement::PowerSpectrum> before;
    std::optional<measurement::PowerSpectrum> predicted;
    std::optional<measurement::PowerSpectrum> after;  ///< as the verification measured it
    std::optional<double> deviationBefore;            ///< dB, from the target; see Deviation
    std::optional<double> deviationPredicted;
    std::optional<double> deviationAfter;
    std::vector<DecayTime> decayBefore;  ///< of the bass; empty: there is no such response
    std::vector<DecayTime> decayPredicted;
    std::vector<DecayTime> decayAfter;
    std::optional<double> difference;  ///< dB, largest of 1/6 octave from predicted to measured

    /// What the loudspeaker is now: measured, or else predicted.
    std::optional<double> deviationNow() const {
        return deviationAfter ? deviationAfter : deviationPredicted;
    }
    const std::vector<DecayTime>& decayNow() const {
        return decayAfter.empty() ? decayPredicted : decayAfter;
    }
};

/// `index` counts the calibration's speakers. Responses that cannot be calculated with are left
/// out.
SpeakerFigures figures(const Calibration& calibration, std::size_t index);

/// The design's part for a speaker; null without a design.
const design::SpeakerCorrection* correctionOf(const Calibration& calibration, std::size_t index);

/// One line for a person: "Front left: deviation 3.2 dB → 0.8 dB, measured".
std::string summary(const Speaker& speaker, const SpeakerFigures& figures);

/// The worst verdict of all checks and verifications.
measurement::Verdict worstVerdict(const Calibration& calibration);

/// The design's warnings, the others, and what checks and verifications found that is not good.
std::vector<std::string> allWarnings(const Calibration& calibration);

/// A name from the network for people and pages: no control or direction characters, not without
/// end; "loudspeaker" when nothing is left.
std::string displayName(const std::string& name);

}  // namespace calibrate::report
