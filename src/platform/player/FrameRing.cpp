#include "platform/player/FrameRing.h"

#include <algorithm>

namespace platform {

void FrameRing::write(std::span<const std::int32_t> samples) {
    const std::size_t begin = written_.load(std::memory_order_relaxed);
    const std::size_t place = begin % samples_.size();
    const std::size_t upper = std::min(samples.size(), samples_.size() - place);
    const auto at = samples_.begin() + static_cast<std::ptrdiff_t>(place);
    std::ranges::copy(samples.first(upper), at);
    std::ranges::copy(samples.subspan(upper), samples_.begin());
    written_.store(begin + samples.size(), std::memory_order_release);
}

std::size_t FrameRing::read(std::span<std::int32_t> samples) {
    const std::size_t begin = read_.load(std::memory_order_relaxed);
    const std::size_t count = std::min(samples.size(), written_.load(kAcquire) - begin);
    const std::size_t place = begin % samples_.size();
    const std::size_t upper = std::min(count, samples_.size() - place);
    const std::span<const std::int32_t> all(samples_);
    std::ranges::copy(all.subspan(place, upper), samples.begin());
    std::ranges::copy(all.first(count - upper),
                      samples.begin() + static_cast<std::ptrdiff_t>(upper));
    read_.store(begin + count, std::memory_order_release);
    return count;
}

}  // namespace platform
