#include "dsp/DirectForm.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

double at(const Channel& channel, std::size_t n, std::size_t delay) {
    return n < delay ? 0.0 : channel[n - delay];
}

void add(const Channel& from, Channel* to) {
    for (std::size_t n = 0; n < to->size(); ++n)
        (*to)[n] += from[n];
}

Channel scaled(Channel channel, double factor) {
    for (double& sample : channel)
        sample *= factor;
    return channel;
}

double linear(double decibels) {
    return std::pow(10.0, decibels / 20);
}

Channel directCell(const DiracBassControlCell& cell, bool isIir, const Channel& input) {
    if (!isIir)
        return scaled(delayed(input, static_cast<std::size_t>(cell.delay)),
                      linear(static_cast<double>(cell.gain)));
    Channel result = input;
    for (std::size_t i = 0; i < cell.biquadCount; ++i)
        result = directBiquad(cell.biquads[i], result);
    return result;
}

Channels directBaseBand(const DiracConfiguration& image, std::size_t group, Channels channels) {
    if (image.bassControlPresent != 0)
        channels = directBassControl(image.bassControl[group], std::move(channels));
    for (std::size_t c = 0; c < std::min(channels.size(), DiracLimits::channels); ++c)
        channels[c] = directFilter(image.groups[group][c], channels[c]);
    return channels;
}

std::vector<float> lowPassOf(const DiracConfiguration& image, unsigned rate) {
    const auto index = static_cast<std::size_t>(std::ranges::find(kDiracSubSamplerRates, rate) -
                                                kDiracSubSamplerRates.begin());
    std::vector<float> taps(image.subSamplerSizes[index] / sizeof(float));
    std::memcpy(taps.data(), image.subSamplerData[index].data(), taps.size() * sizeof(float));
    return taps;
}

Channel decimated(std::span<const float> lowPass, std::size_t ratio, const Channel& input) {
    const Channel filtered = directConvolution(lowPass, input);
    Channel low;
    for (std::size_t n = 0; n < filtered.size(); n += ratio)
        low.push_back(filtered[n]);
    return low;
}

Channel interpolated(std::span<const float> lowPass, std::size_t ratio, const Channel& low,
                     std::size_t frames) {
    Channel stretched(frames);
    for (std::size_t m = 0; m < low.size(); ++m)
        stretched[m * ratio] = static_cast<double>(ratio) * low[m];
    return directConvolution(lowPass, stretched);
}

Channels directHighRate(const DiracConfiguration& image, const Channels& input, unsigned rate,
                        std::size_t ratio, std::size_t group) {
    const auto lowPass = lowPassOf(image, rate);
    Channels low;
    for (const Channel& channel : input)
        low.push_back(decimated(lowPass, ratio, channel));
    const Channels corrected = directBaseBand(image, group, low);
    Channels output = delayed(input, lowPass.size() - 1);
    for (std::size_t c = 0; c < input.size(); ++c) {
        Channel change = scaled(low[c], -1);
        add(corrected[c], &change);
        add(interpolated(lowPass, ratio, change, input[c].size()), &output[c]);
    }
    return output;
}

}  // namespace

Channel directConvolution(std::span<const float> taps, const Channel& input) {
    Channel output(input.size());
    for (std::size_t n = 0; n < input.size(); ++n) {
        for (std::size_t k = 0; k < std::min(taps.size(), n + 1); ++k)
            output[n] += static_cast<double>(taps[k]) * input[n - k];
    }
    return output;
}

Channel directSection(const DiracParallelBiquad& section, const Channel& input) {
    return directBiquad({section.a1, section.a2, section.b0, section.b1, 0}, input);
}

Channel directBiquad(const DiracBiquad& biquad, const Channel& input) {
    Channel output(input.size());
    for (std::size_t n = 0; n < input.size(); ++n)
        output[n] = static_cast<double>(biquad.b0) * input[n] +
                    static_cast<double>(biquad.b1) * at(input, n, 1) +
                    static_cast<double>(biquad.b2) * at(input, n, 2) -
                    static_cast<double>(biquad.a1) * at(output, n, 1) -
                    static_cast<double>(biquad.a2) * at(output, n, 2);
    return output;
}

Channel directFilter(const DiracChannelFilter& filter, const Channel& input) {
    if (filter.filterEnabled == 0)
        return input;
    Channel output = directConvolution(std::span(filter.taps).first(filter.tapCount), input);
    for (std::size_t i = 0; i < filter.biquadCount; ++i)
        add(directSection(filter.biquads[i], input), &output);
    return output;
}

Channel directLinearStage(const DiracChannelFilter& filter, const Channel& input, unsigned rate) {
    if (filter.linearEnabled == 0)
        return input;
    const double frames = static_cast<double>(filter.delay) * rate / 1000;
    return scaled(delayed(input, static_cast<std::size_t>(std::floor(frames + 0.5))),
                  linear(static_cast<double>(filter.gain)));
}

Channels directBassControl(const DiracBassControlBlock& block, Channels channels) {
    constexpr std::size_t lines = 32;
    const std::size_t count = channels.size();
    channels.resize(lines, Channel(channels.front().size()));
    for (const DiracBassControlSection& section : block) {
        if (section.cellCount == 0)
            continue;
        Channels next(lines, Channel(channels.front().size()));
        for (std::size_t i = 0; i < section.cellCount; ++i) {
            const DiracBassControlCell& cell = section.cells[i];
            add(directCell(cell, section.type == 0, channels[cell.inputIdx]),
                &next[cell.outputIdx]);
        }
        channels = next;
    }
    channels.resize(count);
    return channels;
}

Channels directDsp(const DiracConfiguration& image, const Channels& input, unsigned rate) {
    const std::size_t group = rate % 44100 == 0 ? 1 : 0;
    const std::size_t ratio = rate / (group == 1 ? 44100 : 48000);
    Channels output = ratio == 1 ? directBaseBand(image, group, input)
                                 : directHighRate(image, input, rate, ratio, group);
    for (std::size_t c = 0; c < std::min(output.size(), DiracLimits::channels); ++c)
        output[c] = directLinearStage(image.groups[group][c], output[c], rate);
    return output;
}
