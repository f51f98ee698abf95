#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

using Signal = std::vector<float>;
using Signals = std::vector<Signal>;

/// White noise in [-0.5, 0.5]; the same seed gives the same signal.
Signal randomSignal(std::size_t length, unsigned int seed);

/// Noise that dies away by 60 dB over its length, as a room's response does.
Signal randomResponse(std::size_t length, unsigned int seed);

Signal impulse(std::size_t length, std::size_t place, float height);

Signal sine(std::size_t length, double cyclesPerSample, double phase = 0.0);

/// The sum of each input convolved with its response, by the definition, in double precision.
Signal convolvedDirectly(const Signals& inputs, const Signals& responses, std::size_t length);

/// `signal` after `delay` samples of silence, cut or filled up to `length`.
Signal delayed(const Signal& signal, std::size_t delay, std::size_t length);

/// The largest difference, in dB of the largest expected value.
double worstErrorDb(const Signal& actual, const Signal& expected);

double rmsDb(const Signal& signal);
