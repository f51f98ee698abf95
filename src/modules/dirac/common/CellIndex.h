#pragma once

#include <compare>
#include <cstdint>

namespace processing {

/// The address of one bass-control cell, ordered by section, then input, then output.
struct CellIndex {
    std::uint32_t sectionIdx{0};
    std::uint32_t inputIdx{0};
    std::uint32_t outputIdx{0};

    friend auto operator<=>(const CellIndex&, const CellIndex&) = default;
};

}  // namespace processing
