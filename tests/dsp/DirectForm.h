#pragma once

#include "dsp/Signals.h"
#include "sdk/dldsp/DiracConfiguration.h"

#include <span>

// The DSP written down as its formulas stand, over a whole signal at once, in double precision:
// slow, and nothing in common with the engine.

Channel directConvolution(std::span<const float> taps, const Channel& input);
Channel directSection(const DiracParallelBiquad& section, const Channel& input);
Channel directBiquad(const DiracBiquad& biquad, const Channel& input);

/// FIR and parallel sections; the channel as it is when the filter is off.
Channel directFilter(const DiracChannelFilter& filter, const Channel& input);

/// Delay and gain, when they are on.
Channel directLinearStage(const DiracChannelFilter& filter, const Channel& input, unsigned rate);

Channels directBassControl(const DiracBassControlBlock& block, Channels channels);

/// The whole DSP, with its latency, at one of the six rates.
Channels directDsp(const DiracConfiguration& image, const Channels& input, unsigned rate);
