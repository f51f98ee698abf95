#include "roomsim/SpeakerRing.h"

#include <algorithm>

namespace roomsim {

/// Calls copy(place in the samples, speaker, offset from `frame`, frames) for each stretch that
/// lies in one piece.
template <typename Copy>
void SpeakerRing::forEachStretch(std::int64_t frame, std::size_t count, Copy copy) const {
    std::size_t done = 0;
    while (done < count) {
        const std::size_t place = (static_cast<std::uint64_t>(frame) + done) % state_.capacity;
        const std::size_t piece = std::min(count - done, state_.capacity - place);
        for (std::size_t speaker = 0; speaker < state_.speakers; ++speaker)
            copy(samples_ + speaker * state_.capacity + place, speaker, done, piece);
        done += piece;
    }
}

void SpeakerRing::setRate(unsigned int rate, std::int64_t frame) {
    if (rate == state_.rate)
        return;
    state_.rate = rate;
    state_.begin = frame;
    state_.end = frame;
}

void SpeakerRing::write(std::int64_t frame, const float* const* source, std::size_t count) {
    if (frame > state_.end)
        silence(state_.end, static_cast<std::size_t>(frame - state_.end));
    forEachStretch(frame, count,
                   [source](float* to, std::size_t speaker, std::size_t offset, std::size_t size) {
                       std::copy_n(source[speaker] + offset, size, to);
                   });
    state_.end = frame + static_cast<std::int64_t>(count);
    state_.begin = std::max(std::min(state_.begin, frame),
                            state_.end - static_cast<std::int64_t>(state_.capacity));
}

void SpeakerRing::truncate(std::int64_t frame) {
    state_.end = std::clamp(frame, state_.begin, state_.end);
}

void SpeakerRing::read(std::int64_t frame, float* const* target, std::size_t count) const {
    const std::int64_t last = frame + static_cast<std::int64_t>(count);
    const std::int64_t from = std::clamp(state_.begin, frame, last);
    const std::int64_t to = std::clamp(state_.end, from, last);
    const auto before = static_cast<std::size_t>(from - frame);
    const auto there = static_cast<std::size_t>(to - from);
    for (std::size_t speaker = 0; speaker < state_.speakers; ++speaker) {
        std::fill_n(target[speaker], before, 0.0F);
        std::fill(target[speaker] + before + there, target[speaker] + count, 0.0F);
    }
    forEachStretch(from, there,
                   [target, before](const float* source, std::size_t speaker, std::size_t offset,
                                    std::size_t size) {
                       std::copy_n(source, size, target[speaker] + before + offset);
                   });
}

void SpeakerRing::silence(std::int64_t frame, std::size_t count) {
    const std::size_t skipped = count - std::min<std::size_t>(count, state_.capacity);
    forEachStretch(
        frame + static_cast<std::int64_t>(skipped), count - skipped,
        [](float* to, std::size_t, std::size_t, std::size_t size) { std::fill_n(to, size, 0.0F); });
}

}  // namespace roomsim
