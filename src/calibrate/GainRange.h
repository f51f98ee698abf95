#pragma once

#include <endpoint.pb.h>

#include <optional>
#include <string>

namespace calibrate {

/// "-12.0 to 0.0 dB in steps of 0.5 dB"; "not told" without a range.
std::string rangeText(const std::optional<dio::endpoint::GainInfo>& range);

/// Throws BadInput, beginning with `option`, when the gain lies outside the range. A device would
/// silently take the nearest limit, or anything.
void checkGain(const std::string& option, double gain, const dio::endpoint::GainInfo& range);

/// The gain, in dB, without the error of the device's single precision: -6, not -5.9999997.
double withoutRoundingError(double gain);

}  // namespace calibrate
