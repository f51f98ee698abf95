#pragma once

#include <vector>

namespace calibrate::measurement {

/// Levels over frequency, joined by straight lines on a logarithmic frequency axis; level with the
/// first and the last point beyond them. Without points it is 0 dB everywhere.
class FrequencyCurve {
public:
    struct Point {
        double frequency;  ///< Hz, > 0
        double level;      ///< dB
    };

    FrequencyCurve() = default;

    /// Frequencies ascend, none twice; throws std::invalid_argument otherwise.
    explicit FrequencyCurve(std::vector<Point> points);

    const std::vector<Point>& points() const { return points_; }

    /// dB at a frequency above 0 Hz.
    double level(double frequency) const;

private:
    std::vector<Point> points_;
};

}  // namespace calibrate::measurement
