#include "platform/player/PlaybackSession.h"

#include "platform/smt/FlowControl.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace platform {

namespace {

constexpr std::size_t kPiece = 1024;  // frames, from the source to the pipeline at a time

}  // namespace

PlaybackSession::PlaybackSession(std::unique_ptr<AudioSource> source,
                                 const Surroundings& surroundings)
    : source_(std::move(source)), surroundings_(surroundings) {
}

void PlaybackSession::run() {
    while (!surroundings_.interrupt.isSignalled() && !isDone()) {
        progress_.clear();
        step();
        underrunLog_.report(underruns());
        surroundings_.onProgress();
        if (!busy_)
            wait();
    }
}

void PlaybackSession::step() {
    busy_ = false;
    source_->update(frames());
    if (pipeline_ && pipeline_->isFinished())
        return closePipeline();
    if (!source_->format())
        return;
    if (!pipeline_)
        return openPipeline();
    pipeline_->setResting(source_->isResting());
    if (source_->isOver() || *source_->format() != pipeline_->format())
        return pipeline_->finish();
    fill();
}

void PlaybackSession::openPipeline() {
    if (source_->isOver())
        return;
    const AudioFormat format = *source_->format();
    auto output = surroundings_.openOutput(format);
    piece_.resize(kPiece * format.channels);
    pipeline_ = std::make_unique<AudioPipeline>(
        format, std::move(output),
        AudioPipeline::Surroundings{surroundings_.gain, surroundings_.processor,
                                    surroundings_.interrupt, progress_});
    busy_ = true;
    surroundings_.onPlaying();
}

void PlaybackSession::closePipeline() {
    const std::string failure = pipeline_->failure();
    framesBefore_ = frames();
    underrunsBefore_ = underruns();
    pipeline_.reset();
    busy_ = true;
    if (!failure.empty())
        throw std::runtime_error(failure);
}

void PlaybackSession::fill() {
    const std::size_t most = std::min(piece_.size(), pipeline_->room());
    const std::size_t count = source_->read(std::span(piece_).first(most));
    pipeline_->write(std::span(piece_).first(count));
    busy_ = count > 0;
}

bool PlaybackSession::isDone() const {
    return source_->isOver() && !pipeline_;
}

void PlaybackSession::wait() const {
    const std::array descriptors{surroundings_.interrupt.descriptor(), progress_.descriptor(),
                                 source_->descriptor()};
    waitForInput(descriptors, smt::kBetweenLooks);
}

std::uint64_t PlaybackSession::frames() const {
    return framesBefore_ + (pipeline_ ? pipeline_->handedOver() : 0);
}

std::uint64_t PlaybackSession::underruns() const {
    return underrunsBefore_ + (pipeline_ ? pipeline_->underruns() : 0);
}

}  // namespace platform
