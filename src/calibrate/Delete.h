#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"

namespace calibrate {

/// Removes the filter of a slot. Asks the user first unless `confirmed`.
void deleteSlot(EndpointClient& client, int slot, bool confirmed, const Console& console);

}  // namespace calibrate
