#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace dsp {

/// Delays one channel by a whole number of frames. One thread at a time.
class DelayLine {
public:
    explicit DelayLine(std::size_t frames) : ring_(frames) {}

    [[nodiscard]] std::size_t frames() const { return ring_.size(); }

    /// In place. Allocates nothing.
    void process(double* samples, std::size_t frames) {
        if (ring_.empty())
            return;
        for (std::size_t n = 0; n < frames; ++n) {
            std::swap(samples[n], ring_[position_]);
            position_ = position_ + 1 == ring_.size() ? 0 : position_ + 1;
        }
    }

private:
    std::vector<double> ring_;
    std::size_t position_{0};
};

}  // namespace dsp
