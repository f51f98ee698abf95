#include "dsp/BassControl.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace dsp {
namespace {

/// Up to the last line that a cell or a channel uses.
std::size_t linesOf(const std::vector<BassControlSection>& sections, std::size_t channels) {
    std::size_t lines = channels;
    for (const BassControlSection& section : sections) {
        for (const BassControlCell& cell : section)
            lines = std::max({lines, cell.input + 1, cell.output + 1});
    }
    return lines;
}

}  // namespace

BassControl::Biquad::Biquad(const DiracBiquad& coefficients)
    : a1(coefficients.a1),
      a2(coefficients.a2),
      b0(coefficients.b0),
      b1(coefficients.b1),
      b2(coefficients.b2) {
}

void BassControl::Biquad::process(double* samples, std::size_t frames) {
    for (std::size_t n = 0; n < frames; ++n) {
        const double x = samples[n];
        const double y = b0 * x + state1;
        state1 = b1 * x - a1 * y + state2;
        state2 = b2 * x - a2 * y;
        samples[n] = y;
    }
}

BassControl::Cell::Cell(const BassControlCell& cell)
    : input(cell.input),
      output(cell.output),
      biquads(cell.biquads.begin(), cell.biquads.end()),
      delay(cell.delay),
      factor(cell.factor) {
}

void BassControl::Cell::process(double* samples, std::size_t frames) {
    for (Biquad& biquad : biquads)
        biquad.process(samples, frames);
    delay.process(samples, frames);
    std::for_each_n(samples, frames, [this](double& sample) { sample *= factor; });
}

BassControl::BassControl(const std::vector<BassControlSection>& sections, std::size_t channels)
    : channels_(std::min(channels, Correction::kMostLines)),
      from_(linesOf(sections, channels_)),
      to_(from_.size()),
      storage_((2 * from_.size() + 1) * kMostFrames) {
    for (const BassControlSection& section : sections)
        sections_.emplace_back(section.begin(), section.end());
    double* next = storage_.data();
    for (Lines* const lines : {&from_, &to_}) {
        for (double*& line : *lines)
            line = std::exchange(next, next + kMostFrames);
    }
    cellSamples_ = next;
}

void BassControl::process(const double* const* input, double* const* output, std::size_t frames) {
    for (std::size_t line = 0; line < from_.size(); ++line) {
        if (line < channels_)
            std::copy_n(input[line], frames, from_[line]);
        else
            std::fill_n(from_[line], frames, 0.0);
    }
    for (auto& section : sections_)
        process(&section, frames);
    for (std::size_t line = 0; line < channels_; ++line)
        std::copy_n(from_[line], frames, output[line]);
}

void BassControl::process(std::vector<Cell>* section, std::size_t frames) {
    for (double* const line : to_)
        std::fill_n(line, frames, 0.0);
    for (Cell& cell : *section) {
        std::copy_n(from_[cell.input], frames, cellSamples_);
        cell.process(cellSamples_, frames);
        double* const to = to_[cell.output];
        std::transform(to, to + frames, cellSamples_, to, std::plus<>());
    }
    std::swap(from_, to_);
}

}  // namespace dsp
