#include "dsp/BaseBand.h"

#include <algorithm>

namespace dsp {
namespace {

std::vector<std::size_t> channelsOf(const Correction& correction, bool isFiltered) {
    std::vector<std::size_t> channels;
    for (std::size_t c = 0; c < correction.channels.size(); ++c) {
        if (correction.channels[c].isFiltered == isFiltered)
            channels.push_back(c);
    }
    return channels;
}

std::vector<std::vector<float>> responsesOf(const Correction& correction) {
    std::vector<std::vector<float>> responses;
    for (const std::size_t c : channelsOf(correction, true))
        responses.push_back(correction.channels[c].taps);
    return responses;
}

}  // namespace

BaseBand::BaseBand(const Correction& correction, const VectorKernels& kernels)
    : changes_(correction.channels.size()),
      convolver_(responsesOf(correction), kernels),
      filtered_(channelsOf(correction, true)),
      unfiltered_(channelsOf(correction, false)),
      source_(correction.channels.size()),
      filterInput_(filtered_.size()),
      filterOutput_(filtered_.size()) {
    for (const std::size_t c : filtered_) {
        changes_[c] = true;
        sections_.emplace_back(correction.channels[c].sections, kernels);
    }
    if (!correction.bassControl.empty())
        addBassControl(correction);
}

/// It may lead any channel to any other.
void BaseBand::addBassControl(const Correction& correction) {
    const std::size_t channels = std::min(correction.channels.size(), Correction::kMostLines);
    bassControl_.emplace(correction.bassControl, channels);
    storage_ = AlignedBuffer<double>(channels * kMostFrames);
    for (std::size_t c = 0; c < channels; ++c) {
        managed_.push_back(storage_.data() + c * kMostFrames);
        changes_[c] = true;
    }
}

void BaseBand::process(const double* const* input, double* const* output, std::size_t frames) {
    std::copy_n(input, source_.size(), source_.begin());
    if (bassControl_) {
        bassControl_->process(input, managed_.data(), frames);
        std::ranges::copy(managed_, source_.begin());
    }
    for (const std::size_t c : unfiltered_)
        std::copy_n(source_[c], frames, output[c]);
    for (std::size_t done = 0; done < frames;) {
        const std::size_t piece = std::min(frames - done, convolver_.missing());
        for (std::size_t i = 0; i < filtered_.size(); ++i) {
            filterInput_[i] = source_[filtered_[i]] + done;
            filterOutput_[i] = output[filtered_[i]] + done;
        }
        filter(piece);
        done += piece;
    }
}

void BaseBand::filter(std::size_t frames) {
    convolver_.process(filterInput_.data(), filterOutput_.data(), frames);
    for (std::size_t i = 0; i < sections_.size(); ++i)
        sections_[i].add(filterInput_[i], filterOutput_[i], frames);
}

}  // namespace dsp
