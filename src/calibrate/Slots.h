#pragma once

#include <ostream>
#include <string>

#include "calibrate/Console.h"
#include "calibrate/DeviceQuery.h"

namespace calibrate {

/// Prints every slot, and which of them is active.
void slots(EndpointClient& client, const Console& console);

/// The table that `slots` prints, each line behind `indent`.
void printSlots(std::ostream& out, const SlotTable& table, const std::string& indent);

}  // namespace calibrate
