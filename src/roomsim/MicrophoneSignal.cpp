#include "roomsim/MicrophoneSignal.h"

#include <algorithm>
#include <cmath>

namespace roomsim {
namespace {

constexpr std::size_t kBlock = 4096;       // frames
constexpr double kKernelHalfWidth = 64.0;  // samples at full bandwidth
constexpr double kKernelBeta = 10.0;
constexpr double kDownsamplingMargin = 0.96;  // keeps the kernel's slope below the new Nyquist

std::optional<SincKernel> chooseKernel(const MicrophoneSignal::Timing& timing) {
    if (timing.speakerRate == timing.captureRate && !timing.drifts)
        return std::nullopt;
    const double ratio = static_cast<double>(timing.captureRate) / timing.speakerRate;
    const double cutoff = ratio >= 1.0 ? 1.0 : kDownsamplingMargin * ratio;
    return SincKernel(static_cast<std::size_t>(std::ceil(kKernelHalfWidth / cutoff)), cutoff,
                      kKernelBeta);
}

}  // namespace

MicrophoneSignal::MicrophoneSignal(const std::vector<std::vector<float>>& responses,
                                   const Timing& timing)
    : speakerRate_(timing.speakerRate),
      convolver_(responses),
      kernel_(chooseKernel(timing)),
      latency_(std::round(timing.latency * timing.speakerRate)),
      block_(responses.size(), std::vector<float>(kBlock)) {
    if (kernel_)
        latency_ = std::max(latency_, static_cast<double>(kernel_->halfWidth() + 1));
    for (auto& channel : block_)
        blockChannels_.push_back(channel.data());
}

void MicrophoneSignal::start(const StreamClock& clock) {
    clock_ = clock;
    next_.reset();
    window_.clear();
}

void MicrophoneSignal::render(std::int64_t frame, float* output, std::size_t count,
                              const ReadSpeakers& readSpeakers) {
    while (count > 0) {
        const std::size_t piece = std::min(count, kBlock);
        if (kernel_)
            renderInterpolated(frame, output, piece, readSpeakers);
        else
            renderAligned(frame, output, piece, readSpeakers);
        frame += static_cast<std::int64_t>(piece);
        output += piece;
        count -= piece;
    }
}

void MicrophoneSignal::renderAligned(std::int64_t frame, float* output, std::size_t count,
                                     const ReadSpeakers& readSpeakers) {
    seek(std::llround(speakerFrameAt(frame)), readSpeakers);
    convolve(count, output, readSpeakers);
}

void MicrophoneSignal::renderInterpolated(std::int64_t frame, float* output, std::size_t count,
                                          const ReadSpeakers& readSpeakers) {
    const auto half = static_cast<std::int64_t>(kernel_->halfWidth());
    const auto first = static_cast<std::int64_t>(std::floor(speakerFrameAt(frame))) - half + 1;
    moveWindow(first, readSpeakers);
    const auto last = frame + static_cast<std::int64_t>(count) - 1;
    extendWindow(static_cast<std::int64_t>(std::floor(speakerFrameAt(last))) + half + 1,
                 readSpeakers);
    for (std::size_t i = 0; i < count; ++i) {
        const double place = speakerFrameAt(frame + static_cast<std::int64_t>(i));
        const double whole = std::floor(place);
        const std::int64_t start = static_cast<std::int64_t>(whole) - half + 1 - first;
        output[i] = kernel_->valueAt(place - whole, window_.data() + start);
    }
}

/// Drops what lies before `begin`.
void MicrophoneSignal::moveWindow(std::int64_t begin, const ReadSpeakers& readSpeakers) {
    const auto size = static_cast<std::int64_t>(window_.size());
    if (!next_ || begin < *next_ - size || begin > *next_) {
        window_.clear();
        seek(begin, readSpeakers);
    } else {
        window_.erase(window_.begin(), window_.end() - (*next_ - begin));
    }
}

void MicrophoneSignal::extendWindow(std::int64_t end, const ReadSpeakers& readSpeakers) {
    while (*next_ < end) {
        const std::size_t piece = std::min(kBlock, static_cast<std::size_t>(end - *next_));
        window_.resize(window_.size() + piece);
        convolve(piece, window_.data() + window_.size() - piece, readSpeakers);
    }
}

/// After a jump the convolver hears again what still rings in the room.
void MicrophoneSignal::seek(std::int64_t speakerFrame, const ReadSpeakers& readSpeakers) {
    if (next_ == speakerFrame)
        return;
    convolver_.reset();
    next_ = speakerFrame - static_cast<std::int64_t>(convolver_.length());
    while (*next_ < speakerFrame)
        convolve(std::min(kBlock, static_cast<std::size_t>(speakerFrame - *next_)), nullptr,
                 readSpeakers);
}

/// Takes the next `count` <= kBlock frames of the speakers.
void MicrophoneSignal::convolve(std::size_t count, float* output,
                                const ReadSpeakers& readSpeakers) {
    readSpeakers(*next_, blockChannels_.data(), count);
    if (output != nullptr)
        convolver_.process(blockChannels_.data(), count, output);
    else
        convolver_.skip(blockChannels_.data(), count);
    *next_ += static_cast<std::int64_t>(count);
}

double MicrophoneSignal::speakerFrameAt(std::int64_t captureFrame) const {
    return FrameGrid(speakerRate_).framesAt(clock_->exactTimeOf(captureFrame)) - latency_;
}

}  // namespace roomsim
