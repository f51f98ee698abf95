#pragma once

#include "roomsim/MicrophoneSignal.h"
#include "roomsim/NoiseFloor.h"
#include "roomsim/Stream.h"

#include <memory>
#include <vector>

namespace roomsim {

/// The stream that records the room's microphone, one channel.
class CaptureStream : public Stream {
public:
    /// Enters the room; throws RoomError.
    explicit CaptureStream(const RoomDescription& description);

    /// Reads `count` frames from frame `applied` on, all of them recorded already. The frames of
    /// the last buffer can be read again.
    void read(std::int64_t applied, float* target, std::size_t count);

private:
    void configured() override;
    void started(const RoomMemory::Access& room) override;

    void record(std::int64_t end);
    void recordPiece(std::size_t count);
    void followSpeakerRate();
    void buildSignal(unsigned int speakerRate);
    [[nodiscard]] unsigned int speakerRate();
    [[nodiscard]] std::size_t placeOf(std::int64_t frame) const;

    RoomDescription description_;
    NoiseFloor noise_;

    // Guarded by mutex_.
    std::unique_ptr<MicrophoneSignal> signal_;  ///< since configured
    std::vector<float> recorded_;               ///< a ring of the last frames
    std::int64_t recordedEnd_ = 0;
};

}  // namespace roomsim
