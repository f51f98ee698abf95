#pragma once

#include "dsp/StreamRate.h"
#include "sdk/dldsp/DiracConfiguration.h"

#include <cstddef>
#include <string>
#include <vector>

namespace dsp {

/// What one channel does to its signal, in this order.
struct ChannelCorrection {
    bool isFiltered{false};
    std::vector<float> taps;
    std::vector<DiracParallelBiquad> sections;  ///< parallel to the taps
    std::size_t delay{0};                       ///< frames of the stream
    double factor{1};
};

/// One cell of the bass control's matrices.
struct BassControlCell {
    std::size_t input{0};
    std::size_t output{0};
    std::vector<DiracBiquad> biquads;  ///< in series; empty for delay and gain
    std::size_t delay{0};              ///< samples at the base rate
    double factor{1};
};

/// One matrix; without a cell it passes input i on to output i.
using BassControlSection = std::vector<BassControlCell>;

/// What an image asks for at one sample rate, checked: everything in here can be run without harm.
struct Correction {
    /// Lines of bass control; devices have at most two for each loudspeaker and one for each group.
    static constexpr std::size_t kMostLines = 32;
    /// Longer than any room.
    static constexpr double kMostDelay = 1000;  // ms
    static constexpr double kMostGain = 60;     // dB

    bool isBypassed{true};  ///< nothing but latency
    std::vector<ChannelCorrection> channels;
    std::vector<BassControlSection> bassControl;  ///< empty: none
    std::vector<float> lowPass;                   ///< of the sub-sampler, at high rates
    /// What of the image cannot be used and is passed by instead, a line each.
    std::vector<std::string> problems;
};

/// Reads the image for a stream of `channels` channels. Never throws on what an image holds: a
/// channel whose filter is broken (counts beyond the image, values that are no numbers, unstable
/// sections) stays uncorrected, a broken bass control is left out, and an image without usable
/// sub-sampler data for a high rate is bypassed.
Correction readCorrection(const DiracConfiguration& image, const StreamRate& rate,
                          std::size_t channels);

/// Frames of the stream after which all delays have let through what came first, whatever the way
/// through bass control: its sections follow one another, and the channels follow them.
std::size_t longestDelay(const Correction& correction, const StreamRate& rate);

}  // namespace dsp
