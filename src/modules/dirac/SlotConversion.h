#pragma once

#include "sdk/dldsp/DiracConfiguration.h"
#include "sdk/records/VeskDiracRecords.h"

#include <optional>
#include <string>

/// Copies the channel filters and the bass control of `slot` into `configuration`, narrowed to
/// single precision. Elements go to the image in their order: the index fields of bass control are
/// data and choose no place. What the slot does not address stays as it is.
///
/// Returns what the image has no room for, such as
/// "group 0: channel 3: 1025 taps, the image holds 0 to 1024", or nothing when all went in. Memory
/// outside the image's fields is never touched, but after an excess the image holds only a part of
/// the slot and must not be used.
///
/// A count that is larger than the list that it describes ends the process with the list's own
/// assertion.
std::optional<std::string> convertSlot(const VeskDiracSlot& slot,
                                       DiracConfiguration& configuration);
