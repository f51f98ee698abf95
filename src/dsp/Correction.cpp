#include "dsp/Correction.h"

#include "dsp/SubSampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <stdexcept>

namespace dsp {
namespace {

/// Why something cannot be used; never leaves this file.
class Unusable : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <typename Number, std::size_t capacity>
std::span<const Number> firstOf(const std::array<Number, capacity>& places, std::uint32_t count,
                                const std::string& name) {
    if (count > capacity)
        throw Unusable(std::to_string(count) + " " + name + ", the image holds " +
                       std::to_string(capacity));
    return std::span(places).first(count);
}

void requireFinite(std::initializer_list<float> values, const std::string& name) {
    if (!std::ranges::all_of(values, [](float value) { return std::isfinite(value); }))
        throw Unusable(name + " is not a number");
}

/// Both poles inside the unit circle.
void requireStable(float a1, float a2, const std::string& name) {
    if (std::abs(a2) >= 1 || std::abs(static_cast<double>(a1)) >= 1 + static_cast<double>(a2))
        throw Unusable(name + " is unstable");
}

void check(const DiracParallelBiquad& section, const std::string& name) {
    requireFinite({section.a1, section.a2, section.b0, section.b1}, name);
    requireStable(section.a1, section.a2, name);
}

void check(const DiracBiquad& biquad, const std::string& name) {
    requireFinite({biquad.a1, biquad.a2, biquad.b0, biquad.b1, biquad.b2}, name);
    requireStable(biquad.a1, biquad.a2, name);
}

template <typename Biquad>
std::vector<Biquad> checked(std::span<const Biquad> biquads) {
    for (std::size_t i = 0; i < biquads.size(); ++i)
        check(biquads[i], "biquad " + std::to_string(i));
    return {biquads.begin(), biquads.end()};
}

double factorOf(float gain) {
    requireFinite({gain}, "the gain");
    if (gain > Correction::kMostGain)
        throw Unusable("a gain above " + std::to_string(static_cast<int>(Correction::kMostGain)) +
                       " dB");
    return std::pow(10.0, static_cast<double>(gain) / 20);
}

std::size_t framesOf(double milliseconds, unsigned rate) {
    if (!(milliseconds >= 0 && milliseconds <= Correction::kMostDelay))
        throw Unusable("a delay that is not between 0 and " +
                       std::to_string(static_cast<int>(Correction::kMostDelay)) + " ms");
    return static_cast<std::size_t>(std::lround(milliseconds * rate / 1000));
}

void readFilter(const DiracChannelFilter& from, ChannelCorrection* to) {
    const auto taps = firstOf(from.taps, from.tapCount, "taps");
    for (std::size_t i = 0; i < taps.size(); ++i)
        requireFinite({taps[i]}, "tap " + std::to_string(i));
    to->isFiltered = true;
    to->taps.assign(taps.begin(), taps.end());
    to->sections = checked(firstOf(from.biquads, from.biquadCount, "biquads"));
}

ChannelCorrection readChannel(const DiracChannelFilter& from, const StreamRate& rate) {
    ChannelCorrection channel;
    if (from.filterEnabled != 0)
        readFilter(from, &channel);
    if (from.linearEnabled != 0) {
        channel.delay = framesOf(from.delay, rate.rate);
        channel.factor = factorOf(from.gain);
    }
    return channel;
}

void readChannels(const DiracChannelGroup& group, const StreamRate& rate, Correction* to) {
    const std::size_t count = std::min(to->channels.size(), group.size());
    for (std::size_t c = 0; c < count; ++c) {
        try {
            to->channels[c] = readChannel(group[c], rate);
        } catch (const Unusable& error) {
            to->problems.push_back("channel " + std::to_string(c) +
                                   " is left uncorrected: " + error.what());
        }
    }
}

std::size_t lineOf(std::uint32_t index) {
    if (index >= Correction::kMostLines)
        throw Unusable("input or output " + std::to_string(index) + ", the most is " +
                       std::to_string(Correction::kMostLines - 1));
    return index;
}

BassControlCell readCell(const DiracBassControlCell& from, bool isIir, unsigned baseRate) {
    BassControlCell cell{lineOf(from.inputIdx), lineOf(from.outputIdx), {}, 0, 1};
    if (isIir) {
        cell.biquads = checked(firstOf(from.biquads, from.biquadCount, "biquads"));
        return cell;
    }
    cell.delay = framesOf(from.delay * 1000.0 / baseRate, baseRate);
    cell.factor = factorOf(from.gain);
    return cell;
}

/// A place of the matrix has one cell, the last one.
void place(BassControlCell cell, BassControlSection* section) {
    std::erase_if(*section, [&cell](const BassControlCell& other) {
        return other.input == cell.input && other.output == cell.output;
    });
    section->push_back(std::move(cell));
}

BassControlSection readSection(const DiracBassControlSection& from, unsigned baseRate) {
    constexpr std::uint32_t iirType = 0;
    BassControlSection section;
    const auto cells = firstOf(from.cells, from.cellCount, "cells");
    for (std::size_t i = 0; i < cells.size(); ++i) {
        try {
            place(readCell(cells[i], from.type == iirType, baseRate), &section);
        } catch (const Unusable& error) {
            throw Unusable("cell " + std::to_string(i) + ": " + error.what());
        }
    }
    return section;
}

std::vector<BassControlSection> readSections(const DiracBassControlBlock& block,
                                             unsigned baseRate) {
    std::vector<BassControlSection> sections;
    for (std::size_t i = 0; i < block.size(); ++i) {
        try {
            sections.push_back(readSection(block[i], baseRate));
        } catch (const Unusable& error) {
            throw Unusable("section " + std::to_string(i) + ": " + error.what());
        }
    }
    return sections;
}

void readBassControl(const DiracConfiguration& image, const StreamRate& rate, Correction* to) {
    if (image.bassControlPresent == 0)
        return;
    try {
        auto sections = readSections(image.bassControl[rate.group], rate.baseRate);
        std::erase_if(sections, [](const auto& section) { return section.empty(); });
        to->bassControl = std::move(sections);
    } catch (const Unusable& error) {
        to->problems.push_back(std::string("bass control is left out: ") + error.what());
    }
}

/// The block's bytes as numbers; they need not be aligned.
std::vector<float> numbersOf(const DiracSubSamplerBlock& block, std::size_t bytes) {
    std::vector<float> numbers(bytes / sizeof(float));
    std::memcpy(numbers.data(), block.data(), numbers.size() * sizeof(float));
    return numbers;
}

bool isLowPass(const std::vector<float>& taps) {
    double sum = 0;
    for (const float tap : taps)
        sum += tap;
    return std::ranges::all_of(taps, [](float tap) { return std::isfinite(tap); }) &&
           std::equal(taps.begin(), taps.end(), taps.rbegin()) && std::abs(sum - 1) < 1e-3;
}

std::vector<float> readLowPass(const DiracConfiguration& image, unsigned rate) {
    const auto place = std::ranges::find(kDiracSubSamplerRates, rate);
    const auto index = static_cast<std::size_t>(place - kDiracSubSamplerRates.begin());
    const std::uint32_t bytes = image.subSamplerSizes[index];
    if (bytes == 0)
        throw Unusable("there are none");
    if (bytes % sizeof(float) != 0 || bytes > SubSampler::kMostTaps * sizeof(float))
        throw Unusable(std::to_string(bytes) + " bytes are no low-pass");
    auto taps = numbersOf(image.subSamplerData[index], bytes);
    if (!isLowPass(taps))
        throw Unusable("they are not a symmetric low-pass with a gain of 1");
    return taps;
}

/// The longest delay of cells or of channels, which stand side by side.
template <typename Delayed>
std::size_t longestOf(const std::vector<Delayed>& all) {
    std::size_t longest = 0;
    for (const Delayed& one : all)
        longest = std::max(longest, one.delay);
    return longest;
}

}  // namespace

Correction readCorrection(const DiracConfiguration& image, const StreamRate& rate,
                          std::size_t channels) {
    Correction correction;
    correction.channels.resize(channels);
    if (image.bypass != 0)
        return correction;
    try {
        if (rate.ratio > 1)
            correction.lowPass = readLowPass(image, rate.rate);
    } catch (const Unusable& error) {
        correction.problems.push_back("no correction at " + std::to_string(rate.rate) +
                                      " Hz, for want of sub-sampler data: " + error.what());
        return correction;
    }
    correction.isBypassed = false;
    readBassControl(image, rate, &correction);
    readChannels(image.groups[rate.group], rate, &correction);
    return correction;
}

std::size_t longestDelay(const Correction& correction, const StreamRate& rate) {
    std::size_t frames = longestOf(correction.channels);
    for (const BassControlSection& section : correction.bassControl)
        frames += rate.ratio * longestOf(section);
    return frames;
}

}  // namespace dsp
