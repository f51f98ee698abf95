#include "roomsim/CaptureStream.h"

#include "roomsim/ImpulseResponses.h"

#include <algorithm>

namespace roomsim {
namespace {

std::optional<double> unpluggedAfter(const RoomDescription& description) {
    return description.microphones[description.microphone].unpluggedAfter;
}

}  // namespace

CaptureStream::CaptureStream(const RoomDescription& description)
    : Stream(description, Role::kCapture, description.driftPpm, unpluggedAfter(description)),
      description_(description),
      noise_(description.noise, description.noiseSeed) {
}

void CaptureStream::read(std::int64_t applied, float* target, std::size_t count) {
    if (count == 0)
        return;
    const std::lock_guard guard(mutex_);
    const std::int64_t end = applied + static_cast<std::int64_t>(count);
    record(end);
    for (std::size_t i = 0; i < count; ++i)
        target[i] = recorded_[placeOf(applied + static_cast<std::int64_t>(i))];
    setApplied(end);
    update();
}

/// Computing the responses takes its time, so it is done before the stream runs, for the rate that
/// the speakers have, or will most likely have.
void CaptureStream::configured() {
    recorded_.assign(static_cast<std::size_t>(bufferFrames()), 0.0F);
    buildSignal(speakerRate() == 0 ? rate() : speakerRate());
}

void CaptureStream::started(const RoomMemory::Access&) {
    signal_->start(clock());
    recordedEnd_ = 0;
}

void CaptureStream::record(std::int64_t end) {
    followSpeakerRate();
    while (recordedEnd_ < end) {
        const std::size_t place = placeOf(recordedEnd_);
        recordPiece(
            std::min(static_cast<std::size_t>(end - recordedEnd_), recorded_.size() - place));
    }
}

/// Records `count` frames that lie in one piece in the ring.
void CaptureStream::recordPiece(std::size_t count) {
    float* target = recorded_.data() + placeOf(recordedEnd_);
    signal_->render(recordedEnd_, target, count,
                    [this](std::int64_t frame, float* const* channels, std::size_t frames) {
                        room_.access().speakers().read(frame, channels, frames);
                    });
    noise_.add(FrameGrid(rate()).frameAtOrAfter(clock().start()) + recordedEnd_, target, count);
    recordedEnd_ += static_cast<std::int64_t>(count);
}

/// The speakers may change their rate while the microphone is recorded.
void CaptureStream::followSpeakerRate() {
    const unsigned int current = speakerRate();
    if (current == 0 || current == signal_->speakerRate())
        return;
    buildSignal(current);
    signal_->start(clock());
}

void CaptureStream::buildSignal(unsigned int speakerRate) {
    const MicrophoneSignal::Timing timing{speakerRate, rate(), description_.driftPpm != 0.0,
                                          description_.latency};
    signal_ =
        std::make_unique<MicrophoneSignal>(impulseResponses(description_, speakerRate), timing);
}

unsigned int CaptureStream::speakerRate() {
    return room_.access().speakers().rate();
}

std::size_t CaptureStream::placeOf(std::int64_t frame) const {
    return static_cast<std::size_t>(frame) % recorded_.size();
}

}  // namespace roomsim
