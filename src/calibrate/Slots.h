#pragma once

#include "calibrate/Console.h"
#include "calibrate/DeviceQuery.h"

#include <ostream>
#include <string>

namespace calibrate {

/// Prints every slot, and which of them is active.
void slots(EndpointClient& client, const Console& console);

/// The table that `slots` prints, each line behind `indent`.
void printSlots(std::ostream& out, const SlotTable& table, const std::string& indent);

}  // namespace calibrate
