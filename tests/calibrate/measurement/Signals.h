#pragma once

#include "calibrate/measurement/ImpulseResponse.h"

#include <cstddef>
#include <vector>

/// Signals that tests of measurements are made of.

/// White Gaussian noise of this RMS; the same seed gives the same noise.
std::vector<double> whiteNoise(std::size_t length, double rms, unsigned seed);

/// A small room: a direct sound of gain `level` at `delay` samples and an exponentially decaying,
/// noise-like tail that begins 20 samples later, 20 dB below it.
std::vector<double> smallRoom(std::size_t length, std::size_t delay, double level, unsigned seed);

double rms(const std::vector<double>& samples);

/// What a microphone hears of `played` in a room, with white noise `noiseDb` below the sound; as
/// long as the sound and the room's response together.
std::vector<double> heard(const std::vector<float>& played, const std::vector<double>& room,
                          double noiseDb, unsigned seed);

/// The energy of the difference of two responses between two frequencies (Hz), in dB of that of the
/// first. The times of their first samples count.
double errorBetween(const calibrate::measurement::ImpulseResponse& truth,
                    const calibrate::measurement::ImpulseResponse& measured, double from,
                    double to);
