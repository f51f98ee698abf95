#pragma once

#include "calibrate/measurement/FrequencyCurve.h"

#include <filesystem>
#include <string>
#include <vector>

namespace calibrate::measurement {

/// A text file of frequencies and levels, as makers of microphones supply calibrations and
/// programs for room measurement export responses and targets.
struct CurveFile {
    FrequencyCurve curve;
    std::vector<std::string> headers;  ///< lines before and between the numbers that hold text
};

/// Reads lines "frequency level [more columns]" in Hz and dB, separated by blanks, tabulators,
/// commas or semicolons; a comma between digits is a decimal one where anything else parts the
/// columns and no number has a point. Lines may end in any of the usual ways. Further columns
/// (phase) are passed over. Lines that are empty, begin with # ; * / or a quote, or are text before
/// the first line of numbers, are headers. Frequencies ascend; 0 Hz is passed over.
///
/// Throws BadInput with the file's name, the line's number and what is wrong with it.
CurveFile readCurveFile(const std::filesystem::path& path);

}  // namespace calibrate::measurement
