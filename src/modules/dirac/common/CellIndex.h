#pragma once

#include <cstdint>
#include <tuple>

namespace processing {

/// The address of one bass-control cell, ordered by section, then input, then output.
struct CellIndex {
    std::uint32_t sectionIdx{0};
    std::uint32_t inputIdx{0};
    std::uint32_t outputIdx{0};

    friend bool operator==(const CellIndex&, const CellIndex&) = default;
    friend bool operator<(const CellIndex& a, const CellIndex& b) {
        return std::tie(a.sectionIdx, a.inputIdx, a.outputIdx) <
               std::tie(b.sectionIdx, b.inputIdx, b.outputIdx);
    }
};

}  // namespace processing
