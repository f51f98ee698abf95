#pragma once

#include "calibrate/measurement/Fft.h"

#include <span>

namespace calibrate::measurement {

/// The minimum-phase spectrum with these gains (dB), at size / 2 + 1 equally spaced frequencies
/// from 0 to the Nyquist frequency; size is a power of two.
///
/// Its phase is the Hilbert transform of the logarithm of its magnitude, formed by folding the
/// cepstrum onto positive times. The cepstrum aliases when the gains are rough on the scale of a
/// few bins, so they are given densely.
Spectrum minimumPhaseSpectrum(std::span<const double> gains);

}  // namespace calibrate::measurement
