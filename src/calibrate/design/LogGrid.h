#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace calibrate::design {

/// Frequencies at equal steps on a logarithmic axis.
class LogGrid {
public:
    /// From `lowest` to about `highest` (Hz), at least two.
    LogGrid(double lowest, double highest, double pointsPerOctave);

    std::size_t size() const { return frequencies_.size(); }
    const std::vector<double>& frequencies() const { return frequencies_; }
    double pointsPerOctave() const { return pointsPerOctave_; }

    /// Values given on the grid at any frequency above 0 Hz, by straight lines; level beyond the
    /// grid's ends.
    double interpolate(std::span<const double> values, double frequency) const;

    /// Each power's mean over the band of `octaves` around it; at the grid's ends over what there
    /// is of that band.
    std::vector<double> smooth(std::span<const double> powers, double octaves) const;

private:
    double pointsPerOctave_;
    std::vector<double> frequencies_;
};

}  // namespace calibrate::design
