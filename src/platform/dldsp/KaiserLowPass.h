#pragma once

#include <vector>

// Linear-phase low-passes by the window method with Kaiser's window: J. F. Kaiser, "Nonrecursive
// digital filter design using the I0-sinh window function", Proc. IEEE ISCAS 1974; A. V. Oppenheim
// and R. W. Schafer, "Discrete-Time Signal Processing", chapter 7, from which the formulas are.
// Frequencies are fractions of the sample rate. Attenuations are in dB, from 50 upwards.

/// From the end of the pass band to the begin of the stop band.
double kaiserTransitionWidth(int taps, double attenuation);

/// The impulse response of a low-pass whose transition band has its middle at `cutOff`: symmetric,
/// with a gain of 1 at 0 Hz. `taps` is odd, so that the delay is a whole number of samples. The
/// gain of the pass band lies as close to 1 as that of the stop band lies to 0.
std::vector<double> kaiserLowPass(int taps, double cutOff, double attenuation);
