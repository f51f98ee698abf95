#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

#include <endpoint.pb.h>

#include <cstdint>
#include <vector>

/// What a client transfers for one cell.
struct CellDesign {
    dio::endpoint::CellIndex cell;
    std::vector<dio::endpoint::FIIR> fiirs;
    std::vector<dio::endpoint::IIR> iirs;
    std::vector<dio::endpoint::DelayGain> delayGains;
};

/// A design for one slot, as the messages of its transfer.
using FilterDesign = std::vector<CellDesign>;

/// How large a design is.
struct DesignSize {
    int speakers{2};
    int taps{100};
    int biquads{4};
    bool bassControl{false};
};

/// As large as the device takes it: ten speakers, 1000 taps and 30 biquads each, and bass control.
inline constexpr DesignSize kFullDesign{10, 1000, 30, true};

/// A design for both variants with numbers that depend on `seed` alone; two seeds share none of
/// them. No filter that anyone would want to hear.
FilterDesign makeDesign(const DesignSize& size, std::uint32_t seed);

/// Whether the image carries exactly this design, and passes nothing by it.
bool holdsDesign(const DiracConfiguration& image, const FilterDesign& design);
