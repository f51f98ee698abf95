#include "platform/player/AudioPipeline.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <utility>

namespace platform {

namespace {

constexpr std::size_t kBlock = 256;  // frames
constexpr std::size_t kRing = 8192;  // frames
constexpr std::chrono::hours kLong{1};

/// When nothing has come for so long the output is drained before it runs dry by itself.
constexpr std::chrono::milliseconds kPatience{50};

}  // namespace

AudioPipeline::AudioPipeline(const AudioFormat& format, std::unique_ptr<AudioOutput> output,
                             const Surroundings& surroundings)
    : format_(format),
      output_(std::move(output)),
      surroundings_(surroundings),
      ring_(kRing * format.channels),
      volume_(format, surroundings.gain),
      block_(kBlock * format.channels) {
    surroundings_.processor.prepare(format);
    latency_ = surroundings_.processor.latency();
    thread_ = std::thread([this] { run(); });
}

AudioPipeline::~AudioPipeline() {
    finish();
    thread_.join();
}

std::size_t AudioPipeline::room() const {
    return ring_.room();
}

void AudioPipeline::write(std::span<const std::int32_t> samples) {
    if (samples.empty())
        return;
    ring_.write(samples);
    supplied_.signal();
}

void AudioPipeline::finish() {
    closed_ = true;
    supplied_.signal();
}

void AudioPipeline::run() {
    try {
        while (playBlock()) {
        }
    } catch (const std::exception& error) {
        failure_ = error.what();
    }
    finished_ = true;
    surroundings_.progress.signal();
}

bool AudioPipeline::playBlock() {
    // First of all, so that it tells of everything that comes after the looks that follow.
    supplied_.clear();
    const bool isLast = closed_;  // looked at before the ring: nothing is written afterwards
    const std::span samples(block_.data(), ring_.read(block_));
    if (samples.empty())
        return awaitFrames(isLast);
    if (wasLate_)
        ++starved_;
    wasLate_ = false;
    sounding_ = true;
    volume_.apply(samples, surroundings_.gain);
    surroundings_.processor.process(samples);
    if (!output_->write(samples))
        return false;
    handedOver_ += samples.size() / format_.channels;
    surroundings_.progress.signal();
    return true;
}

bool AudioPipeline::awaitFrames(bool isLast) {
    if (isLast) {
        rest();
        return false;
    }
    const bool resting = resting_;
    if (sounding_ && resting)
        return rest();
    const std::array descriptors{supplied_.descriptor(), surroundings_.interrupt.descriptor()};
    waitForInput(descriptors, sounding_ ? kPatience : kLong);
    if (surroundings_.interrupt.isSignalled())
        return false;
    if (!sounding_ || supplied_.isSignalled())
        return true;
    wasLate_ = !resting_;
    return rest();
}

/// Lets what was written be heard to its end, so that the output does not run dry.
bool AudioPipeline::rest() {
    if (!std::exchange(sounding_, false))
        return true;
    return flushProcessor() && output_->drain();
}

bool AudioPipeline::flushProcessor() {
    for (std::size_t left = latency_ * format_.channels; left > 0;) {
        const std::span samples(block_.data(), std::min(left, block_.size()));
        std::ranges::fill(samples, 0);
        surroundings_.processor.process(samples);
        if (!output_->write(samples))
            return false;
        left -= samples.size();
    }
    return true;
}

}  // namespace platform
