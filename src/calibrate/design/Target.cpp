#include "calibrate/design/Target.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/measurement/CurveFile.h"

#include <filesystem>

namespace calibrate::design {

measurement::FrequencyCurve readTarget(const std::string& nameOrFile) {
    if (nameOrFile == "flat")
        return {};
    if (nameOrFile == "house")
        return measurement::FrequencyCurve({{60, 3}, {200, 0}, {1'000, 0}, {20'000, -3}});
    std::error_code ignored;
    if (!std::filesystem::exists(nameOrFile, ignored))
        throw BadInput("\"" + printable(nameOrFile) +
                       "\" is no target: neither flat nor house nor a file");
    return measurement::readCurveFile(nameOrFile).curve;
}

}  // namespace calibrate::design
