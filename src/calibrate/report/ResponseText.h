#pragma once

#include "calibrate/measurement/FrequencyCurve.h"
#include "calibrate/measurement/ImpulseResponse.h"

#include <string>

namespace calibrate::report {

/// Responses as programs for room measurement import them: lines "frequency level phase" in Hz, dB
/// and degrees, log-spaced at 48 points an octave from 10 Hz; lines that begin with * tell what it
/// is. Plain ASCII but for the title.

/// The phase is that after the arrival of the direct sound, as the header says. Unsmoothed: the
/// response's value at each frequency. The response is usable.
std::string responseText(const measurement::ImpulseResponse& response, const std::string& title);

/// Without phase.
std::string responseText(const measurement::FrequencyCurve& curve, const std::string& title);

}  // namespace calibrate::report
