#pragma once

#include "modules/dirac/common/BassControlFilterCoefficients.h"
#include "modules/dirac/common/FilterCoefficients.h"
#include "sdk/records/VeskDiracRecords.h"

#include <QVariantList>

#include <vector>

// Designs as a slot's record holds them. Pure.

namespace processing {

/// The record's `params`. A channel with neither taps nor biquads does not filter; one whose delay
/// or gain is zero has no linear stage. A channel biquad's fifth coefficient has no place there.
QVariantList channelParams(const std::vector<FilterCoefficients>& filters);

/// The record's `bcParams`. Asserts that each design has exactly five sections. Throws
/// std::out_of_range for a cell that has not what its section carries.
QVariantList bassControlParams(const std::vector<BassControlFilterCoefficients>& filters);

/// The channel filters of a record, for each variant; the record's size is taken as the number of
/// cells of a variant. Lists that are shorter end the process with their own assertion.
std::vector<FilterCoefficients> channelFilters(const VeskDiracSlot& record, int numberOfVariants);

}  // namespace processing
