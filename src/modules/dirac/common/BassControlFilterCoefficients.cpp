#include "modules/dirac/common/BassControlFilterCoefficients.h"

#include <algorithm>

namespace processing {

void BassControlFilterCoefficients::resizeToFit(int n) {
    const auto count = static_cast<std::size_t>(std::max(n, 0));
    if (cellIndices.size() < count)
        cellIndices.resize(count);
}

void BassControlFilterCoefficients::appendToSection(CellIndex cell) {
    const std::size_t section = cell.sectionIdx;
    if (cellIndices.size() <= section)
        cellIndices.resize(section + 1);
    cellIndices[section].push_back(cell);
}

void BassControlFilterCoefficients::setCoefficientsForCell(
    CellIndex cell, const std::vector<dio::endpoint::Biquad>& cellBiquads) {
    if (!biquads.contains(cell))
        appendToSection(cell);
    biquads[cell] = cellBiquads;
}

void BassControlFilterCoefficients::setDelayGainForCell(CellIndex cell, int delay, float gain) {
    if (!delays.contains(cell))
        appendToSection(cell);
    delays[cell] = delay;
    gains[cell] = gain;
}

bool BassControlFilterCoefficients::isWhole() const {
    return cellIndices.size() == kBassControlSections &&
           std::ranges::all_of(cellIndices, [this](const std::vector<CellIndex>& cells) {
               return std::ranges::all_of(
                   cells, [this](const CellIndex& cell) { return isCellWhole(cell); });
           });
}

bool BassControlFilterCoefficients::isCellWhole(const CellIndex& cell) const {
    return isDelayGainSection(cell.sectionIdx) ? delays.contains(cell) : biquads.contains(cell);
}

std::vector<dio::endpoint::Biquad> BassControlFilterCoefficients::getBiquadsForCell(
    CellIndex cell) const {
    return biquads.at(cell);
}

int BassControlFilterCoefficients::getDelayForCell(CellIndex cell) const {
    return delays.at(cell);
}

float BassControlFilterCoefficients::getGainForCell(CellIndex cell) const {
    return gains.at(cell);
}

}  // namespace processing
