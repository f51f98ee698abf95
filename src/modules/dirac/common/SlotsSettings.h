#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/records/VeskValue.h"

// How the filter manager reaches the configuration tree: values are read whole, changed and written
// back whole.

namespace processing {

/// The value at `path` as it stands; empty when there is none.
VeskValue readValue(const CMPath& path);

/// Asks for a new value; does not wait.
void writeValue(const CMPath& path, const VeskValue& value);

/// The slots settings as they stand; an empty list when there are none.
VeskDiracSlotsList readSlotsSettings();

/// Does not wait.
void writeSlotsSettings(const VeskDiracSlotsList& list);

/// Takes the records of `slot` out of the list. Returns the last of them, or an empty record.
VeskDiracSlot takeSlot(VeskDiracSlotsList& list, int slot);

void appendSlot(VeskDiracSlotsList& list, const VeskDiracSlot& record);

}  // namespace processing
