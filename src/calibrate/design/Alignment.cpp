#include "calibrate/design/Alignment.h"

#include "calibrate/Text.h"

#include <algorithm>

namespace calibrate::design {

using measurement::Arrival;

std::vector<Alignment> align(const std::vector<Arrival>& arrivals,
                             const std::vector<std::string>& names,
                             const AlignmentCapacity& capacity,
                             std::vector<std::string>& warnings) {
    const double latest = std::ranges::max(arrivals, {}, &Arrival::time).time;
    const double quietest = std::ranges::min(arrivals, {}, &Arrival::level).level;
    std::vector<Alignment> alignments;
    for (std::size_t i = 0; i < arrivals.size(); ++i) {
        const double delay = latest - arrivals[i].time;
        const double gain = quietest - arrivals[i].level;
        if (delay > capacity.maxDelay) {
            warnings.push_back(names[i] + " would need a delay of " + fixed(1000 * delay, 2) +
                               " ms; the device takes " + fixed(1000 * capacity.maxDelay, 2) +
                               " ms");
        }
        if (-gain > capacity.maxGain) {
            warnings.push_back(names[i] + " is " + fixed(-gain, 1) +
                               " dB louder than the quietest speaker; the device takes back " +
                               fixed(capacity.maxGain, 1) + " dB");
        }
        alignments.push_back(
            {std::min(delay, capacity.maxDelay), std::max(gain, -capacity.maxGain)});
    }
    return alignments;
}

}  // namespace calibrate::design
