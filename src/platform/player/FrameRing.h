#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace platform {

/// Samples on their way from one thread to another, without a lock. One thread writes, one reads.
class FrameRing {
public:
    explicit FrameRing(std::size_t samples) : samples_(samples) {}

    // The writer's.

    std::size_t room() const { return samples_.size() - (written_ - read_.load(kAcquire)); }
    /// Takes all of `samples`, for which there must be room.
    void write(std::span<const std::int32_t> samples);

    // The reader's.

    /// Copies what there is, as far as it fits; the number of samples.
    std::size_t read(std::span<std::int32_t> samples);

private:
    static constexpr auto kAcquire = std::memory_order_acquire;

    std::vector<std::int32_t> samples_;
    std::atomic<std::size_t> written_{0};  // since the beginning
    std::atomic<std::size_t> read_{0};     // since the beginning
};

}  // namespace platform
