#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"

namespace calibrate {

/// Puts a slot to use, and switches correction on where it is off; gain and delay stay as they are.
/// Throws DeviceError when the device does not take the slot; the slot that was active stays so.
void activateSlot(EndpointClient& client, int slot);

/// activateSlot, with a check of the number and a report.
void activate(EndpointClient& client, int slot, const Console& console);

/// Switches correction off. The active slot stays chosen, gain and delay stay as they are.
void activateOff(EndpointClient& client, const Console& console);

}  // namespace calibrate
