#pragma once

#include "modules/dirac/common/CellIndex.h"

#include <endpoint.pb.h>

#include <cstddef>
#include <map>
#include <vector>

namespace processing {

/// The sections of a design that manage the bass.
inline constexpr std::size_t kBassControlSections = 5;

/// Sections 2 and 4 carry delay and gain, the others biquads.
constexpr bool isDelayGainSection(std::size_t section) {
    return section == 2 || section == 4;
}

/// The bass control of one variant of a design, five sections of cells: sections 0, 1 and 3 carry
/// biquads, sections 2 and 4 delay and gain. Numbers are kept as received. Cells are only ever
/// added. A value type.
class BassControlFilterCoefficients {
public:
    /// Grows the list of sections to `n`, the new ones without cells; never shrinks.
    void resizeToFit(int n);

    /// A cell's first biquads add it to its section's list; later ones replace them.
    void setCoefficientsForCell(CellIndex cell,
                                const std::vector<dio::endpoint::Biquad>& cellBiquads);

    /// A cell's first delay and gain add it to its section's list, once more when it has biquads
    /// already; later ones replace them.
    void setDelayGainForCell(CellIndex cell, int delay, float gain);

    /// By section: its cells in the order in which they were added.
    std::vector<std::vector<CellIndex>> getCellIndices() const { return cellIndices; }

    /// Whether it can be stored: it has all five sections and no other, and each cell has what its
    /// section carries.
    bool isWhole() const;

    // Throw std::out_of_range for a cell that was not given such a value.
    std::vector<dio::endpoint::Biquad> getBiquadsForCell(CellIndex cell) const;
    int getDelayForCell(CellIndex cell) const;
    float getGainForCell(CellIndex cell) const;

private:
    void appendToSection(CellIndex cell);
    bool isCellWhole(const CellIndex& cell) const;

    std::map<CellIndex, std::vector<dio::endpoint::Biquad>> biquads;
    std::map<CellIndex, int> delays;
    std::map<CellIndex, float> gains;
    std::vector<std::vector<CellIndex>> cellIndices;
};

}  // namespace processing
