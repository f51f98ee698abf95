#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"

#include <optional>
#include <string>
#include <vector>

namespace calibrate {

/// Gains to set, in dB; what is not given stays as it is.
struct GainsOptions {
    std::optional<double> speaker;
    std::optional<double> microphone;
    std::optional<double> stimulus;
    std::vector<std::string> speakers;  ///< whose stimulus gain, by name or index; none: all
};

/// Sets the gains that are given, and shows all with their ranges. Nothing is set when one of them
/// lies outside its range.
void gains(EndpointClient& client, const GainsOptions& options, const Console& console);

}  // namespace calibrate
