#include "calibrate/measurement/SampleRate.h"

#include <soxr.h>

#include <cmath>
#include <stdexcept>
#include <string>

namespace calibrate::measurement {

std::vector<double> atSampleRate(std::span<const double> samples, double from, double to) {
    if (from == to || samples.empty())
        return {samples.begin(), samples.end()};
    const double length = std::ceil(static_cast<double>(samples.size()) * to / from);
    std::vector<double> result(static_cast<std::size_t>(length));
    const auto format = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const auto quality = soxr_quality_spec(SOXR_VHQ, 0);
    std::size_t taken = 0;
    std::size_t given = 0;
    const auto* error =
        soxr_oneshot(from, to, 1, samples.data(), samples.size(), &taken, result.data(),
                     result.size(), &given, &format, &quality, nullptr);
    if (error)
        throw std::runtime_error(std::string("a signal could not be resampled: ") + error);
    result.resize(given);
    return result;
}

}  // namespace calibrate::measurement
