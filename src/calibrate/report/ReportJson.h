#pragma once

#include "calibrate/report/Figures.h"

#include <nlohmann/json_fwd.hpp>

namespace calibrate::report {

/// The report for programs; docs/report.md describes the keys, which carry their units. Numbers are
/// rounded to what they are worth, and null where there is none. Texts are UTF-8 whatever they
/// were. `figures` has one entry for each speaker.
nlohmann::ordered_json toJson(const Calibration& calibration,
                              const std::vector<SpeakerFigures>& figures);

}  // namespace calibrate::report
