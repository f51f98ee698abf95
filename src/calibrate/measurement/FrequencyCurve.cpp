#include "calibrate/measurement/FrequencyCurve.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace calibrate::measurement {

FrequencyCurve::FrequencyCurve(std::vector<Point> points) : points_(std::move(points)) {
    const auto descends = [](const Point& a, const Point& b) { return a.frequency >= b.frequency; };
    const bool ascending = std::ranges::adjacent_find(points_, descends) == points_.end();
    if (!ascending || (!points_.empty() && !(points_.front().frequency > 0)))
        throw std::invalid_argument("the frequencies of a curve ascend from above 0 Hz");
}

double FrequencyCurve::level(double frequency) const {
    if (points_.empty())
        return 0;
    const auto above = std::ranges::upper_bound(points_, frequency, {}, &Point::frequency);
    if (above == points_.begin())
        return points_.front().level;
    if (above == points_.end())
        return points_.back().level;
    const auto below = std::prev(above);
    const double part =
        std::log(frequency / below->frequency) / std::log(above->frequency / below->frequency);
    return below->level + part * (above->level - below->level);
}

}  // namespace calibrate::measurement
