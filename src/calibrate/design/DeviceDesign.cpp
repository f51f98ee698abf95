#include "calibrate/design/DeviceDesign.h"

#include "calibrate/design/SystemDesign.h"

namespace calibrate::design {

DeviceDesign deviceDesign(const SystemDesign& design) {
    DeviceDesign result;
    for (const auto& speaker : design.speakers)
        result.speakers.push_back(
            {speaker.name, speaker.subwoofer, speaker.alignment, speaker.filters});
    if (design.bass)
        result.bassCells = design.bass->cells;
    return result;
}

}  // namespace calibrate::design
