#pragma once

#include <cstddef>
#include <cstdint>

namespace roomsim {

/// What the speakers play, by frame of the playback rate's grid: a window of recent and coming
/// frames. Plain data; the samples, one ring of `capacity` for each speaker, lie elsewhere.
struct SpeakerRingState {
    std::uint32_t speakers;
    std::uint32_t rate;      ///< Hz, 0 before the first playback
    std::uint64_t capacity;  ///< frames
    std::int64_t begin;      ///< frames before were never written
    std::int64_t end;        ///< frames from here on are not written yet
};

/// Reads and writes the frames. Does not own anything; the caller holds the lock.
class SpeakerRing {
public:
    SpeakerRing(SpeakerRingState& state, float* samples) : state_(state), samples_(samples) {}

    [[nodiscard]] unsigned int rate() const { return state_.rate; }

    /// Begins anew, unless the rate stays, in silence at `frame`.
    void setRate(unsigned int rate, std::int64_t frame);

    /// Writes `count` frames from `source`, one array per speaker, and forgets what was written
    /// after them. Frames that were left out since are silent.
    void write(std::int64_t frame, const float* const* source, std::size_t count);

    /// Forgets the frames from `frame` on.
    void truncate(std::int64_t frame);

    /// Copies `count` frames; frames that are not there are silent.
    void read(std::int64_t frame, float* const* target, std::size_t count) const;

private:
    template <typename Copy>
    void forEachStretch(std::int64_t frame, std::size_t count, Copy copy) const;
    void silence(std::int64_t frame, std::size_t count);

    SpeakerRingState& state_;
    float* samples_;
};

}  // namespace roomsim
