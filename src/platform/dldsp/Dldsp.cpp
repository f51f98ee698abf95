#include "sdk/dldsp/Dldsp.h"

#include "platform/dldsp/KaiserLowPass.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

// The sub-sampler data of a rate are the taps of the low-pass that guards decimation to the base
// rate (44.1 or 48 kHz) and interpolation from it: native-endian floats, symmetric, gain 1 at 0 Hz.
// They depend on the ratio of the rates only: 2 for 88.2 and 96 kHz, 4 for 176.4 and 192 kHz.
//
// Both low-passes pass the same band, 0 to 0.449 of the base rate (19.8 or 21.5 kHz). At ratio 2
// the stop band begins at half the base rate, so nothing aliases. At ratio 4 the transition band is
// twice as wide and lies around half the base rate, so what aliases falls into the transition band,
// never into the pass band. The stop band is at -100.6 dB or below, the pass band flat within
// 0.0001 dB.

namespace {

/// 255 taps are 1020 bytes: caches of the data hold 1024.
constexpr int kTaps = 255;
/// dB. A little more than the 100 dB wanted, because the design formulas are approximations.
constexpr double kAttenuation = 101;

constexpr unsigned kHighestDoubleRate = 96000;

double cutOffFor(unsigned sampleRate) {
    constexpr double halfBaseRateAtRatio2 = 1.0 / 4;
    constexpr double halfBaseRateAtRatio4 = 1.0 / 8;
    if (sampleRate > kHighestDoubleRate)
        return halfBaseRateAtRatio4;
    return halfBaseRateAtRatio2 - kaiserTransitionWidth(kTaps, kAttenuation) / 2;
}

std::vector<float> lowPassFor(unsigned sampleRate) {
    const std::vector<double> taps = kaiserLowPass(kTaps, cutOffFor(sampleRate), kAttenuation);
    std::vector<float> singlePrecision;
    std::transform(taps.begin(), taps.end(), std::back_inserter(singlePrecision),
                   [](double tap) { return static_cast<float>(tap); });
    return singlePrecision;
}

}  // namespace

bool Dldsp::precacheSsFilterData(DiracConfiguration& configuration, unsigned sampleRate,
                                 unsigned numSpeakers, unsigned capacity) {
    constexpr std::size_t bytes = kTaps * sizeof(float);
    static_assert(bytes <= DiracLimits::subSamplerBytes);
    const auto rate = std::ranges::find(kDiracSubSamplerRates, sampleRate);
    if (rate == kDiracSubSamplerRates.end() || numSpeakers > DiracLimits::channels ||
        capacity < bytes)
        return false;

    const auto index = static_cast<std::size_t>(rate - kDiracSubSamplerRates.begin());
    std::memcpy(configuration.subSamplerData[index].data(), lowPassFor(sampleRate).data(), bytes);
    configuration.subSamplerSizes[index] = bytes;
    return true;
}
