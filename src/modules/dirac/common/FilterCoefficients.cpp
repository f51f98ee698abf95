#include "modules/dirac/common/FilterCoefficients.h"

#include <algorithm>

namespace processing {

namespace {

template <typename T>
void grow(std::vector<T>& cells, std::size_t count) {
    if (cells.size() < count)
        cells.resize(count);
}

/// The entry of `cell`, or an empty one.
template <typename T>
T entry(const std::vector<T>& cells, int cell) {
    const auto position = static_cast<std::size_t>(cell);
    return cell >= 0 && position < cells.size() ? cells[position] : T{};
}

}  // namespace

void FilterCoefficients::resizeToFit(int n) {
    growTo(static_cast<std::size_t>(std::max(n, 0)));
}

void FilterCoefficients::growTo(std::size_t count) {
    grow(firTaps, count);
    grow(biquads, count);
    grow(delays, count);
    grow(gains, count);
}

void FilterCoefficients::setCoefficientsForCell(
    int cell, const std::vector<float>& taps,
    const std::vector<dio::endpoint::Biquad>& cellBiquads) {
    if (cell < 0)
        return;
    const auto position = static_cast<std::size_t>(cell);
    growTo(position + 1);
    firTaps[position] = taps;
    biquads[position] = cellBiquads;
}

void FilterCoefficients::setGainDelayForCell(int cell, float gain, float delay) {
    if (cell < 0)
        return;
    const auto position = static_cast<std::size_t>(cell);
    growTo(position + 1);
    delays[position] = delay;
    gains[position] = gain;
}

std::vector<float> FilterCoefficients::getFirTapsForCell(int cell) const {
    return entry(firTaps, cell);
}

std::vector<dio::endpoint::Biquad> FilterCoefficients::getBiquadsForCell(int cell) const {
    return entry(biquads, cell);
}

float FilterCoefficients::getDelayForCell(int cell) const {
    return entry(delays, cell);
}

float FilterCoefficients::getGainForCell(int cell) const {
    return entry(gains, cell);
}

}  // namespace processing
