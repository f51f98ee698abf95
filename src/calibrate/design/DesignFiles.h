#pragma once

#include "calibrate/design/SystemDesign.h"

#include <nlohmann/json_fwd.hpp>

#include <filesystem>

namespace calibrate::design {

/// A design as JSON; docs/filter-design.md describes the keys, which carry their units.
nlohmann::ordered_json toJson(const SystemDesign& design);

/// Writes a design into a folder, which is made when it is missing:
///  - design.json: everything, with the coefficients;
///  - SPEAKER-RATE.wav: the whole filter's impulse response, for any convolver;
///  - SPEAKER-RATE-fir.wav: the taps alone, which are no filter without the sections;
///  - SPEAKER-before.txt, -after.txt, -target.txt, -filter.txt: frequency, dB and, for the filter,
///    phase in degrees, as programs for room measurement import them.
/// Throws std::runtime_error that names the file, as when the disk is full.
void writeDesign(const std::filesystem::path& folder, const SystemDesign& design,
                 const measurement::FrequencyCurve& target);

/// A speaker's name as a part of a file's name.
std::string fileName(const std::string& speaker);

}  // namespace calibrate::design
