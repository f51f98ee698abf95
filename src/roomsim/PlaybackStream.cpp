#include "roomsim/PlaybackStream.h"

#include <algorithm>

namespace roomsim {

PlaybackStream::PlaybackStream(const RoomDescription& description)
    : Stream(description, Role::kPlayback, 0.0, std::nullopt),
      speakers_(description.speakers.size()) {
}

bool PlaybackStream::write(std::int64_t applied, const float* const* source, std::size_t count) {
    const std::lock_guard guard(mutex_);
    bool written = false;
    setApplied(applied);
    update([&](const RoomMemory::Access& room) {
        if (isRunning())
            room.speakers().write(roomFrameOf(applied), source, count);
        else if (isPrepared())
            stage(applied, source, count);
        else
            return;
        setApplied(applied + static_cast<std::int64_t>(count));
        written = true;
    });
    return written;
}

void PlaybackStream::configured() {
    staged_.assign(speakers_, std::vector<float>(static_cast<std::size_t>(bufferFrames())));
    room_.access().speakers().setRate(rate(), FrameGrid(rate()).frameAtOrAfter(now()));
}

void PlaybackStream::started(const RoomMemory::Access& room) {
    std::vector<const float*> source;
    for (const auto& channel : staged_)
        source.push_back(channel.data());
    const auto count = static_cast<std::size_t>(std::min(applied(), bufferFrames()));
    room.speakers().write(roomFrameOf(0), source.data(), count);
}

/// What is not played yet never will be.
void PlaybackStream::stopped(const RoomMemory::Access& room) {
    room.speakers().truncate(roomFrameOf(framesDone()));
}

void PlaybackStream::stage(std::int64_t frame, const float* const* source, std::size_t count) {
    for (std::size_t speaker = 0; speaker < speakers_; ++speaker)
        std::copy_n(source[speaker], count, staged_[speaker].begin() + frame);
}

std::int64_t PlaybackStream::roomFrameOf(std::int64_t frame) const {
    return FrameGrid(rate()).frameAtOrAfter(clock().start()) + frame;
}

}  // namespace roomsim
