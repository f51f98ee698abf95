#include "calibrate/design/Target.h"

#include "calibrate/measurement/CurveFile.h"

namespace calibrate::design {

measurement::FrequencyCurve readTarget(const std::string& nameOrFile) {
    if (nameOrFile == "flat")
        return {};
    if (nameOrFile == "house")
        return measurement::FrequencyCurve({{60, 3}, {200, 0}, {1'000, 0}, {20'000, -3}});
    return measurement::readCurveFile(nameOrFile).curve;
}

}  // namespace calibrate::design
