#include "dsp/StreamRate.h"

#include "dsp/SubSampler.h"

#include <array>

namespace dsp {

std::size_t StreamRate::latency() const {
    return ratio == 1 ? 0 : SubSampler::kLatency;
}

std::optional<StreamRate> streamRate(unsigned rate) {
    constexpr std::array<StreamRate, 6> rates{{{44100, 44100, 1, 1},
                                               {48000, 48000, 1, 0},
                                               {88200, 44100, 2, 1},
                                               {96000, 48000, 2, 0},
                                               {176400, 44100, 4, 1},
                                               {192000, 48000, 4, 0}}};
    for (const StreamRate& known : rates) {
        if (known.rate == rate)
            return known;
    }
    return std::nullopt;
}

}  // namespace dsp
