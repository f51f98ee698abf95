#pragma once

#include <QtGlobal>

#include <vector>

// The measurement stimuli: mono samples with nominal full scale ±1. Both functions are pure but for
// the clock that seeds the noise, and may be called from any thread.

/// Exponential sine sweep from `startFreq` to `endFreq` (Hz) in `length` samples, then `silence`
/// zero samples, both `numPeriods` times. The sweep's last sample is at `endFreq`. From
/// `endFreq - fadeOutTailHz` on it fades out with a raised cosine to exactly zero; there is no fade
/// when `fadeOutTailHz` is not greater than 1, and never a fade-in. Empty when there is no period,
/// when `length` is below 2, or when the signal has 2^32 samples or more.
Q_DECL_EXPORT std::vector<float> generateLogSweep(double startFreq, double endFreq,
                                                  unsigned int length, unsigned int silence,
                                                  unsigned int numPeriods, double sampleRate,
                                                  double fadeOutTailHz);

/// `numberOfSamples` samples of pink noise with a peak of sin(1); the sample rate does not matter.
/// Seeded with the time in seconds: calls within one second give the same signal.
Q_DECL_EXPORT std::vector<float> generatePinkNoise(double sampleRate, unsigned int numberOfSamples);
