#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"

#include <optional>

namespace calibrate {

/// Stages to switch; what is not given stays as it is.
struct ModeOptions {
    std::optional<bool> correction;
    std::optional<bool> gainAndDelay;
};

/// Switches the stages of the device's processing that are given, and shows all.
void mode(EndpointClient& client, const ModeOptions& options, const Console& console);

}  // namespace calibrate
