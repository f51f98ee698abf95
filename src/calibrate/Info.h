#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"

namespace calibrate {

/// Prints all that the device tells about itself.
void info(EndpointClient& client, const Console& console);

}  // namespace calibrate
