#include "calibrate/GainRange.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"

#include <cmath>

namespace calibrate {

std::string rangeText(const std::optional<dio::endpoint::GainInfo>& range) {
    return range ? fixed(range->minimum(), 1) + " to " + fixed(range->maximum(), 1) +
                       " dB in steps of " + fixed(range->step(), 1) + " dB"
                 : "not told";
}

void checkGain(const std::string& option, double gain, const dio::endpoint::GainInfo& range) {
    if (!(gain >= range.minimum() && gain <= range.maximum())) {
        throw BadInput(option + " " + decibels(gain) + ": the device takes " +
                       fixed(range.minimum(), 1) + " to " + fixed(range.maximum(), 1) + " dB");
    }
}

double withoutRoundingError(double gain) {
    constexpr double kPerDecibel = 10000;
    return std::round(gain * kPerDecibel) / kPerDecibel;
}

}  // namespace calibrate
