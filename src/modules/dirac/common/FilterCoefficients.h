#pragma once

#include <endpoint.pb.h>

#include <cstddef>
#include <vector>

namespace processing {

/// The channel filters of one variant of a design: FIR taps, biquads, delay and gain of each cell.
/// Cells are numbered from 0, one an input channel; numbers are kept as received. Cells are only
/// ever added. A value type.
class FilterCoefficients {
public:
    /// Number of cells.
    unsigned size() const { return static_cast<unsigned>(firTaps.size()); }

    /// Grows to `n` cells without coefficients and with zero delay and gain; never shrinks.
    void resizeToFit(int n);

    /// Adds the cell when it is new, replaces its coefficients otherwise. A negative cell is
    /// ignored.
    void setCoefficientsForCell(int cell, const std::vector<float>& taps,
                                const std::vector<dio::endpoint::Biquad>& cellBiquads);

    /// Adds the cell when it is new, replaces its gain and delay otherwise. A negative cell is
    /// ignored.
    void setGainDelayForCell(int cell, float gain, float delay);

    // Empty, or zero, for a cell that does not exist.
    std::vector<float> getFirTapsForCell(int cell) const;
    std::vector<dio::endpoint::Biquad> getBiquadsForCell(int cell) const;
    float getDelayForCell(int cell) const;
    float getGainForCell(int cell) const;

private:
    void growTo(std::size_t count);

    // By cell; of equal length.
    std::vector<std::vector<float>> firTaps;
    std::vector<std::vector<dio::endpoint::Biquad>> biquads;
    std::vector<float> delays;
    std::vector<float> gains;
};

}  // namespace processing
