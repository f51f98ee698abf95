#pragma once

#include "calibrate/design/SystemDesign.h"

#include <filesystem>
#include <string>
#include <vector>

namespace calibrate::design {

inline constexpr const char* kDesignFile = "design.json";

/// Writes a design into a folder, which is made when it is missing:
///  - design.json: everything, with the coefficients, see DesignJson.h;
///  - SPEAKER-RATE.wav: the whole filter's impulse response, for any convolver;
///  - SPEAKER-RATE-fir.wav: the taps alone, which are no filter without the sections;
///  - SPEAKER-RATE-response.txt: frequency, dB and phase in degrees.
/// `names` are the speakers' parts of these names, all different. Throws WriteError.
void writeFilters(const std::filesystem::path& folder, const SystemDesign& design,
                  const std::vector<std::string>& names);

/// With what the names of a filter's files begin: "SPEAKER-RATE".
std::string filterStem(const std::string& speaker, double sampleRate);

/// The same, and SPEAKER-before.txt, -after.txt, -target.txt: frequency and dB, as programs for
/// room measurement import them. The speakers' names make different file names.
void writeDesign(const std::filesystem::path& folder, const SystemDesign& design,
                 const measurement::FrequencyCurve& target);

/// A speaker's name as a part of a file's name.
std::string fileName(const std::string& speaker);

}  // namespace calibrate::design
