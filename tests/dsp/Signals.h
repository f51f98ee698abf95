#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

using Channel = std::vector<double>;
using Channels = std::vector<Channel>;

/// White noise, uniform within ±`peak`, always the same for a seed.
Channels noise(std::size_t channels, std::size_t frames, double peak = 0.5, unsigned seed = 1);

/// A cosine of amplitude 1.
Channel tone(double frequency, double rate, std::size_t frames);

/// The energy of a - b over that of b, dB, over all channels.
double errorLevel(const Channels& a, const Channels& b);

/// A channel `frames` later, as long as before.
Channel delayed(const Channel& channel, std::size_t frames);
Channels delayed(const Channels& channels, std::size_t frames);

/// Pointers to each channel's frames from `first` on.
std::vector<const double*> pointersTo(const Channels& channels, std::size_t first = 0);
std::vector<double*> pointersTo(Channels* channels, std::size_t first = 0);

/// What `process(input, output, frames)` gives when it is called for `block` frames at a time. A
/// block of 0 stands for calls of all kinds of lengths.
template <typename Process>
Channels processedBy(const Process& process, const Channels& input, std::size_t block = 128) {
    Channels output(input.size(), Channel(input.front().size()));
    std::size_t call = 0;
    for (std::size_t done = 0; done < input.front().size();) {
        constexpr std::size_t lengths[] = {1, 127, 128, 3, 64, 300, 17, 129, 1000};
        const std::size_t wanted = block > 0 ? block : lengths[call++ % std::size(lengths)];
        const std::size_t frames =
            wanted < input.front().size() - done ? wanted : input.front().size() - done;
        process(pointersTo(input, done).data(), pointersTo(&output, done).data(), frames);
        done += frames;
    }
    return output;
}
