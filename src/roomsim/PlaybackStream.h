#pragma once

#include "roomsim/Stream.h"

#include <vector>

namespace roomsim {

/// The stream that feeds the room's speakers.
class PlaybackStream : public Stream {
public:
    /// Enters the room; throws RoomError.
    explicit PlaybackStream(const RoomDescription& description);

    /// Writes `count` frames, from frame `applied` on, from one array per speaker. False, and
    /// nothing is written, when the room has run dry before.
    bool write(std::int64_t applied, const float* const* source, std::size_t count);

private:
    void configured() override;
    void started(const RoomMemory::Access& room) override;
    void stopped(const RoomMemory::Access& room) override;

    void stage(std::int64_t frame, const float* const* source, std::size_t count);
    [[nodiscard]] std::int64_t roomFrameOf(std::int64_t frame) const;

    std::size_t speakers_;

    /// What is written before the start, when the room does not know yet when to play it. Guarded
    /// by mutex_.
    std::vector<std::vector<float>> staged_;
};

}  // namespace roomsim
