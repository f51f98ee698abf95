#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// From a stimulus in memory to what is sent to the player, chunk by chunk. Pure: any thread.

/// Full-scale samples as signed 32-bit integers, rounded to the nearest; what exceeds ±1 is clipped
/// and what is not a number is silence.
std::vector<std::int32_t> pcmOf(const std::vector<float>& samples);

/// Interleaved frames of `channels` channels, silent but for `channel`, which has the samples.
/// `size` is that of the samples in bytes, 4 each, in native order; 0 <= channel < channels.
QByteArray monoToSpecificChannel(const char* samples, std::size_t size, int channel, int channels);

/// Multiplies the samples by a gain of at most 1; the products go to `scaled`, rounded to the
/// nearest with ties away from zero. Exact for gains of 2^-20 and above, and for 0.
void applyGain(std::span<const std::int32_t> samples, float gain,
               std::vector<std::int32_t>& scaled);

/// What a client is told after each chunk: percent of one pass through the speakers, from -1. A
/// stimulus that repeats counts on beyond 100. `position` is that in the signal, `size` the
/// signal's and both are in bytes; `done` counts the speakers that have played, `speakers` those of
/// a pass.
float playbackProgress(std::uint64_t position, std::uint64_t done, std::uint64_t size,
                       std::uint64_t speakers);
