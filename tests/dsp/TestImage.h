#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

#include <cstddef>
#include <memory>

// Images for tests, bypass off. The image is too large for the stack of a small thread.
using Image = std::unique_ptr<DiracConfiguration>;

/// Nothing is corrected; the sub-sampler data are there.
Image plainImage();

/// Each channel of each group has a filter of its own.
Image filterImage(std::size_t channels, std::size_t taps, std::size_t sections);

/// Stereo with a subwoofer on channel 2: crossover, alignment, sum. Five cells a section at most.
void addBassControl(DiracConfiguration* image);

/// A stable section with a pole pair at `frequency`, of `rate`.
DiracParallelBiquad resonance(double frequency, double rate, double amplitude);
