#pragma once

#include "calibrate/report/Figures.h"

#include <string>

namespace calibrate::report {

/// The report for people: one HTML page without scripts and without anything from elsewhere, which
/// is well-formed XML too. The same calibration gives the same bytes. `figures` has one entry for
/// each speaker.
std::string page(const Calibration& calibration, const std::vector<SpeakerFigures>& figures);

}  // namespace calibrate::report
