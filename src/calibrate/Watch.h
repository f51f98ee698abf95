#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"

#include <cstdint>
#include <optional>

namespace calibrate {

/// Prints a line for each change on the device's side, with the new value, until the command is
/// interrupted or `count` lines are printed. No other client can work with the device meanwhile.
void watch(EndpointClient& client, std::optional<std::uint64_t> count, const Console& console);

}  // namespace calibrate
