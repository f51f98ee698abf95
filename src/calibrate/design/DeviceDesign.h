#pragma once

#include "calibrate/design/Alignment.h"
#include "calibrate/design/BassManagement.h"
#include "calibrate/design/ParallelFilter.h"

#include <string>
#include <vector>

namespace calibrate::design {

struct SystemDesign;

/// What a device gets of a design.
struct DeviceDesign {
    struct Speaker {
        std::string name;
        bool subwoofer{false};
        Alignment alignment;                  ///< where bass management does not hold it
        std::vector<ParallelFilter> filters;  ///< one for each sample rate, for all the same ones
    };
    std::vector<Speaker> speakers;                 ///< in the device's order
    std::vector<std::vector<BassCell>> bassCells;  ///< for each sample rate; empty: none
};

DeviceDesign deviceDesign(const SystemDesign& design);

}  // namespace calibrate::design
