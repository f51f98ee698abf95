#include "dsp/Engine.h"

#include "dsp/DenormalGuard.h"

#include <algorithm>
#include <functional>

namespace dsp {
namespace {

std::size_t framesOfFir(unsigned rate) {
    const auto known = streamRate(rate);
    return DiracLimits::taps * (known ? known->ratio : 1);
}

}  // namespace

std::size_t Engine::latency(unsigned rate) {
    const auto known = streamRate(rate);
    return known ? known->latency() : 0;
}

Engine::Engine(const DiracConfiguration& image, const StreamFormat& format,
               const VectorKernels& kernels)
    : format_(format),
      warmUp_(framesOfFir(format.rate)),
      inputs_(format.channels),
      outputs_(format.channels) {
    const auto rate = streamRate(format.rate);
    const Correction correction =
        rate ? readCorrection(image, *rate, format.channels) : Correction{};
    problems_ = correction.problems;
    if (!rate && image.bypass == 0)
        problems_.push_back("no correction at " + std::to_string(format.rate) + " Hz");
    if (correction.isBypassed)
        latency_.assign(format.channels, DelayLine(latency(format.rate)));
    else
        build(correction, *rate, kernels);
}

void Engine::build(const Correction& correction, const StreamRate& rate,
                   const VectorKernels& kernels) {
    warmUp_ += longestDelay(correction, rate);
    baseBand_.emplace(correction, kernels);
    for (const ChannelCorrection& channel : correction.channels)
        linear_.push_back({DelayLine(channel.delay), channel.factor});
    if (rate.ratio == 1)
        return;
    storage_ = AlignedBuffer<double>(2 * format_.channels * kBlock);
    double* next = storage_.data();
    for (std::size_t c = 0; c < format_.channels; ++c, next += 2 * kBlock) {
        subSamplers_.emplace_back(correction.lowPass, rate.ratio, kernels);
        lowBand_.push_back(next);
        corrected_.push_back(next + kBlock);
    }
}

void Engine::process(const double* const* input, double* const* output,
                     std::size_t frames) noexcept {
    const DenormalGuard guard;
    for (std::size_t done = 0; done < frames; done += kBlock) {
        for (std::size_t c = 0; c < format_.channels; ++c) {
            inputs_[c] = input[c] + done;
            outputs_[c] = output[c] + done;
        }
        processBlock(inputs_.data(), outputs_.data(), std::min(kBlock, frames - done));
    }
}

void Engine::processBlock(const double* const* input, double* const* output, std::size_t frames) {
    if (!baseBand_)
        return delay(input, output, frames);
    correct(input, output, frames);
    alignChannels(output, frames);
}

void Engine::delay(const double* const* input, double* const* output, std::size_t frames) {
    for (std::size_t c = 0; c < format_.channels; ++c) {
        std::copy_n(input[c], frames, output[c]);
        latency_[c].process(output[c], frames);
    }
}

void Engine::correct(const double* const* input, double* const* output, std::size_t frames) {
    if (subSamplers_.empty())
        baseBand_->process(input, output, frames);
    else
        correctLowBand(input, output, frames);
}

void Engine::correctLowBand(const double* const* input, double* const* output, std::size_t frames) {
    std::size_t lowFrames = 0;
    for (std::size_t c = 0; c < format_.channels; ++c)
        lowFrames = subSamplers_[c].decimate(input[c], frames, lowBand_[c]);
    baseBand_->process(lowBand_.data(), corrected_.data(), lowFrames);
    for (std::size_t c = 0; c < format_.channels; ++c) {
        double* const change = corrected_[c];
        std::transform(change, change + lowFrames, lowBand_[c], change, std::minus<>());
        subSamplers_[c].interpolate(baseBand_->changes(c) ? change : nullptr, output[c]);
    }
}

void Engine::alignChannels(double* const* output, std::size_t frames) {
    for (std::size_t c = 0; c < format_.channels; ++c) {
        linear_[c].delay.process(output[c], frames);
        if (linear_[c].factor != 1)
            std::for_each_n(output[c], frames,
                            [factor = linear_[c].factor](double& sample) { sample *= factor; });
    }
}

}  // namespace dsp
