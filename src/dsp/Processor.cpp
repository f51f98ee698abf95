#include "dsp/Processor.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace dsp {
namespace {

constexpr std::chrono::milliseconds kInterval{10};
constexpr double kFullScale = 2147483648.0;

/// Exact for what came from a sample and was not changed.
std::int32_t sampleOf(double value) {
    using Limits = std::numeric_limits<std::int32_t>;
    const double scaled = std::nearbyint(value * kFullScale);
    return static_cast<std::int32_t>(
        std::clamp(scaled, double{Limits::min()}, double{Limits::max()}));
}

}  // namespace

Processor::Processor(int key, Report report) : report_(std::move(report)), reader_(key) {
}

Processor::~Processor() {
    stopFollowing();
}

void Processor::stopFollowing() {
    std::thread following;
    {
        const std::lock_guard guard(mutex_);
        stop_ = true;
        reader_.detach();
        following = std::move(thread_);
    }
    stopped_.notify_one();
    if (following.joinable())
        following.join();
}

void Processor::prepare(const StreamFormat& format) {
    const std::lock_guard guard(mutex_);
    if (!stop_)
        reader_.poll();
    engineFormat_ = format;
    handover_.clear();
    fader_.emplace(makeEngine(), handover_);
    format_ = format;
    storage_ = AlignedBuffer<double>(2 * format.channels * kBlock);
    input_.clear();
    output_.clear();
    for (std::size_t c = 0; c < format.channels; ++c) {
        input_.push_back(storage_.data() + 2 * c * kBlock);
        output_.push_back(input_.back() + kBlock);
    }
    report();
    if (!stop_ && !thread_.joinable())
        thread_ = std::thread([this] { follow(); });
}

void Processor::process(std::span<std::int32_t> samples) noexcept {
    const std::size_t most = kBlock * format_.channels;
    while (fader_ && samples.size() >= format_.channels && !samples.empty()) {
        const auto block = samples.first(std::min(most, samples.size()));
        processBlock(block);
        samples = samples.subspan(block.size());
    }
}

void Processor::processBlock(std::span<std::int32_t> samples) {
    const std::size_t channels = format_.channels;
    const std::size_t frames = samples.size() / channels;
    for (std::size_t n = 0; n < frames; ++n) {
        for (std::size_t c = 0; c < channels; ++c)
            input_[c][n] = samples[n * channels + c] / kFullScale;
    }
    fader_->process(input_.data(), output_.data(), frames);
    for (std::size_t n = 0; n < frames; ++n) {
        for (std::size_t c = 0; c < channels; ++c)
            samples[n * channels + c] = sampleOf(output_[c][n]);
    }
}

void Processor::follow() {
    std::unique_lock guard(mutex_);
    while (!stop_) {
        look();
        stopped_.wait_for(guard, kInterval, [this] { return stop_; });
    }
}

void Processor::look() {
    handover_.reclaim();
    if (reader_.poll())
        handover_.offer(makeEngine());
    report();
}

std::unique_ptr<Engine> Processor::makeEngine() {
    auto engine = std::make_unique<Engine>(reader_.image(), engineFormat_);
    problems_ = engine->problems();
    return engine;
}

/// What is new since the last report.
void Processor::report() {
    std::vector<std::string> problems = problems_;
    if (!reader_.problem().empty())
        problems = {"nothing is corrected: " + reader_.problem()};
    for (const std::string& problem : problems) {
        if (std::ranges::find(reported_, problem) == reported_.end())
            report_(problem);
    }
    reported_ = std::move(problems);
}

}  // namespace dsp
