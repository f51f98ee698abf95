#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

/// The DSP's library.
class Dldsp {
public:
    /// Precalculates the sub-sampler data of `configuration` for `sampleRate` (one of
    /// kDiracSubSamplerRates) into the rate's block and writes its byte count. `capacity` is the
    /// size of a block in bytes. False, with the configuration unchanged, when the rate is unknown,
    /// the data do not fit, or there are more speakers than channels. Pure; any thread.
    static bool precacheSsFilterData(DiracConfiguration& configuration, unsigned sampleRate,
                                     unsigned numSpeakers, unsigned capacity);
};
