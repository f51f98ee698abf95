#pragma once

#include "calibrate/report/Curves.h"
#include "calibrate/report/Figures.h"
#include "calibrate/report/Markup.h"

#include <string>
#include <vector>

namespace calibrate::report {

/// The response charts of all speakers share their levels' axis.
struct LevelRange {
    double from{-20};  ///< dB
    double to{10};
};

/// Hz, at which responses are drawn and told.
std::vector<double> responseFrequencies();

/// Frequency and level (dB), 1/6 octave, 20 Hz to 20 kHz, moved to where the spectrum fits the
/// target best in the speaker's band. One point for each of responseFrequencies(); no number above
/// the Nyquist frequency.
Line responseLine(const measurement::PowerSpectrum& spectrum,
                  const measurement::FrequencyCurve& target, const SpeakerFigures& figures);

/// A range, in steps of 5 dB, in which all speakers' responses can be seen.
LevelRange levelRange(const Calibration& calibration, const std::vector<SpeakerFigures>& figures);

/// All plots of a speaker; `id` begins the identifiers in them and is unique in the page.
Markup plots(const Calibration& calibration, std::size_t index, const SpeakerFigures& figures,
             const LevelRange& range, const std::string& id);

}  // namespace calibrate::report
