#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

#include <cstddef>
#include <vector>

namespace segment {

/// What a channel's filter does to one frequency.
struct ResponsePoint {
    double frequency{0};   ///< Hz
    double magnitude{0};   ///< dB, minus infinity for silence
    double phase{0};       ///< degrees, above -180 up to 180
    double groupDelay{0};  ///< ms, 0 where the channel is silent
};

/// Sample rate of a group of channel filters, Hz.
double groupSampleRate(std::size_t group);

/// `count` (at least 2) frequencies from `first` to `last`, each the same factor above the one
/// before it.
std::vector<double> logSpacedFrequencies(double first, double last, std::size_t count);

/// The response, at `frequency`, of what the DSP does with the channel: the FIR and the parallel
/// sections when the filter is enabled, then delay and gain when the linear stage is. Bass control
/// and bypass are not part of it. Counts beyond the record's capacity are cut.
ResponsePoint channelResponse(const DiracChannelFilter& channel, double sampleRate,
                              double frequency);

}  // namespace segment
