#include "dsp/TestImage.h"

#include "sdk/dldsp/Dldsp.h"

#include <cmath>
#include <numbers>
#include <random>
#include <stdexcept>

namespace {

void addFilter(DiracChannelFilter* filter, std::size_t taps, std::size_t sections, double rate,
               unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    filter->filterEnabled = 1;
    filter->tapCount = static_cast<std::uint32_t>(taps);
    filter->biquadCount = static_cast<std::uint32_t>(sections);
    filter->taps.fill(0);
    for (std::size_t i = 0; i < taps; ++i)
        filter->taps[i] =
            static_cast<float>(0.2 * normal(random) * std::exp(-static_cast<double>(i) / 150));
    for (std::size_t i = 0; i < sections; ++i)
        filter->biquads[i] = resonance(18 * std::pow(20.0, static_cast<double>(i) / 30), rate,
                                       0.003 * normal(random));
}

DiracBiquad lowPass(double frequency, double rate, bool isHighPass) {
    const double w = 2 * std::numbers::pi * frequency / rate;
    const double alpha = std::sin(w) / std::numbers::sqrt2;
    const double side = (isHighPass ? 1 + std::cos(w) : 1 - std::cos(w)) / 2;
    const double sign = isHighPass ? -2 : 2;
    const auto over = [alpha](double value) { return static_cast<float>(value / (1 + alpha)); };
    return {over(-2 * std::cos(w)), over(1 - alpha), over(side), over(sign * side), over(side)};
}

void addCrossover(DiracBassControlSection* section, double rate) {
    section->cellCount = 5;
    for (std::uint32_t i = 0; i < section->cellCount; ++i) {
        auto& cell = section->cells[i];
        cell.inputIdx = i % 3;
        cell.outputIdx = i < 3 ? i : 3;
        cell.biquadCount = 2;
        const bool isHighPass = i < 2;
        cell.biquads[0] = cell.biquads[1] = lowPass(80, rate, isHighPass);
    }
}

void addAlignment(DiracBassControlSection* section) {
    section->type = 1;
    section->cellCount = 4;
    for (std::uint32_t i = 0; i < section->cellCount; ++i) {
        auto& cell = section->cells[i];
        cell.inputIdx = i;
        cell.outputIdx = i < 3 ? i : 2;
        cell.delay = static_cast<std::int32_t>(17 * i);
        cell.gain = -1.5F * static_cast<float>(i);
    }
}

}  // namespace

DiracParallelBiquad resonance(double frequency, double rate, double amplitude) {
    const double w = 2 * std::numbers::pi * frequency / rate;
    const double radius = 1 - w / 4;
    return {static_cast<float>(-2 * radius * std::cos(w)), static_cast<float>(radius * radius),
            static_cast<float>(amplitude), static_cast<float>(-0.9 * amplitude)};
}

Image plainImage() {
    auto image = std::make_unique<DiracConfiguration>();
    image->bypass = 0;
    for (const unsigned rate : kDiracSubSamplerRates) {
        if (!Dldsp::precacheSsFilterData(*image, rate, 2, DiracLimits::subSamplerBytes))
            throw std::logic_error("no sub-sampler data");
    }
    return image;
}

Image filterImage(std::size_t channels, std::size_t taps, std::size_t sections) {
    auto image = plainImage();
    for (std::size_t group = 0; group < image->groups.size(); ++group) {
        for (std::size_t c = 0; c < channels; ++c)
            addFilter(&image->groups[group][c], taps, sections, group == 0 ? 48000 : 44100,
                      static_cast<unsigned>(100 * group + c));
    }
    return image;
}

void addBassControl(DiracConfiguration* image) {
    image->bassControlPresent = 1;
    for (std::size_t group = 0; group < image->groups.size(); ++group) {
        auto& block = image->bassControl[group];
        addCrossover(&block[0], group == 0 ? 48000 : 44100);
        addAlignment(&block[2]);
    }
}
