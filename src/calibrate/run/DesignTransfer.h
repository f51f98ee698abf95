#pragma once

#include "calibrate/Transfer.h"
#include "calibrate/design/DeviceDesign.h"

#include <vector>

namespace calibrate::run {

/// What sends a design: each speaker's filter for each variant and, where there is no bass
/// management that holds it, its alignment; then the cells of the bass management. The design has
/// the filters of `variants`, in their order, and must outlive the steps.
std::vector<TransferStep> transferSteps(const design::DeviceDesign& design,
                                        const std::vector<protocol::FIIRInfo>& variants);

}  // namespace calibrate::run
