#include "calibrate/FilterDesign.h"

#include "calibrate/Errors.h"
#include "calibrate/FrequencyResponse.h"
#include "calibrate/Resample.h"
#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <span>

namespace calibrate {
namespace {

/// Parts of a filter's energy that resampling may cut: more is refused, more is worth a warning.
constexpr double kMostLostEnergy = 0.01;
constexpr double kNotableLostEnergy = 1e-8;

/// Longest filter that is resampled, in taps of the result: the fit takes the square of it.
constexpr std::size_t kMaxResampledTaps = 8192;

/// A source that is longer than this many times the device's capacity is not worth a closer look.
constexpr std::size_t kHopelessLength = 16;

constexpr double kInfinite = std::numeric_limits<double>::infinity();  // dB

/// dB. Louder at any frequency than this deserves a second look.
constexpr double kNotableBoost = 12;

bool sameRate(double a, double b) {
    return std::abs(a - b) < 0.5;
}

std::string milliseconds(std::size_t samples, double sampleRate) {
    return fixed(1000 * static_cast<double>(samples) / sampleRate, 2) + " ms";
}

/// The taps without the zeros at their end; at least one.
std::span<const double> significant(const std::vector<double>& taps) {
    std::size_t count = taps.size();
    while (count > 1 && taps[count - 1] == 0)
        --count;
    return std::span(taps).first(count);
}

[[noreturn]] void refuseTooLong(const std::string& origin, std::size_t taps, double rate,
                                const Variant& variant) {
    const auto fitting = static_cast<std::size_t>(
        std::floor(static_cast<double>(variant.maxTaps) * rate / variant.sampleRate));
    throw BadInput(origin + ": " + counted(taps, "tap") + " at " + hertz(rate) +
                   ", but the device holds " + std::to_string(variant.maxTaps) + " at " +
                   hertz(variant.sampleRate) + ": shorten the filter to " +
                   counted(fitting, "tap") + " (" + milliseconds(fitting, rate) + ")");
}

const SpeakerFilter* exactFilter(const SpeakerFilters& filters, const Variant& variant) {
    const auto found = std::find_if(filters.begin(), filters.end(), [&](const auto& filter) {
        return sameRate(filter.sampleRate, variant.sampleRate);
    });
    return found == filters.end() ? nullptr : &*found;
}

const SpeakerFilter& highestRate(const SpeakerFilters& filters) {
    return *std::max_element(filters.begin(), filters.end(), [](const auto& a, const auto& b) {
        return a.sampleRate < b.sampleRate;
    });
}

void checkResampling(const SpeakerFilter& filter, const Variant& variant) {
    const double ratio = variant.sampleRate / filter.sampleRate;
    if (1 / ratio < kLeastRateRatio) {
        throw BadInput(filter.origin + ": a filter at " + hertz(filter.sampleRate) +
                       " says nothing about the upper frequencies at " + hertz(variant.sampleRate) +
                       ": give one at this rate or above");
    }
    const auto taps = significant(filter.taps);
    const std::size_t length = resampledLength(taps.size(), ratio);
    if (length / kHopelessLength > variant.maxTaps ||
        energyBeyond(taps, ratio, variant.maxTaps, 0) > kMostLostEnergy)
        refuseTooLong(filter.origin, taps.size(), filter.sampleRate, variant);
    if (std::min(length, variant.maxTaps) > kMaxResampledTaps) {
        throw BadInput(filter.origin + ": filters longer than " +
                       counted(kMaxResampledTaps, "tap") + " are not resampled: give one at " +
                       hertz(variant.sampleRate));
    }
}

float narrowed(double tap) {
    if (!(std::abs(tap) <= static_cast<double>(std::numeric_limits<float>::max())))
        throw BadInput("a filter has taps that are too large for 32-bit floats: lower its gain");
    return static_cast<float>(tap);
}

std::vector<float> narrowed(std::span<const double> taps) {
    std::vector<float> result(taps.size());
    std::transform(taps.begin(), taps.end(), result.begin(),
                   [](double tap) { return narrowed(tap); });
    return result;
}

std::vector<float> impulse(std::size_t delay) {
    std::vector<float> taps(delay + 1, 0.0F);
    taps[delay] = 1;
    return taps;
}

/// Makes the filters of one variant.
class VariantDesigner {
public:
    VariantDesigner(const std::vector<SpeakerFilters>& speakers, const Variant& variant)
        : speakers_(speakers) {
        design_.variant = variant;
        design_.taps.resize(speakers.size());
    }

    VariantDesign make() {
        takeExact();
        resampleOthers();
        const std::size_t delay = design_.conversion ? design_.conversion->delay : 0;
        for (auto& taps : design_.taps)
            if (taps.empty())
                taps = impulse(delay);
        return std::move(design_);
    }

private:
    void takeExact() {
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            if (const auto* filter = exactFilter(speakers_[i], design_.variant)) {
                const auto taps = filter->taps.size() <= design_.variant.maxTaps
                                      ? std::span<const double>(filter->taps)
                                      : significant(filter->taps);
                design_.taps[i] = narrowed(taps);
                hasExact_ = true;
            }
        }
    }

    void resampleOthers() {
        std::vector<std::size_t> indices;
        std::vector<ResampleInput> inputs;
        std::set<double> rates;
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            if (!design_.taps[i].empty() || speakers_[i].empty())
                continue;
            const auto& filter = highestRate(speakers_[i]);
            checkResampling(filter, design_.variant);
            indices.push_back(i);
            inputs.push_back({significant(filter.taps), filter.sampleRate});
            rates.insert(filter.sampleRate);
        }
        if (inputs.empty())
            return;
        // Filters that are taken as they are cannot be delayed along, so no other may be.
        const auto result =
            resample(inputs, design_.variant.sampleRate, design_.variant.maxTaps, !hasExact_);
        for (std::size_t i = 0; i < indices.size(); ++i)
            design_.taps[indices[i]] = narrowed(result.taps[i]);
        design_.conversion = {{rates.begin(), rates.end()},
                              result.delay,
                              result.deviation,
                              result.bandEdge,
                              result.lostEnergy};
    }

    const std::vector<SpeakerFilters>& speakers_;
    VariantDesign design_;
    bool hasExact_{false};
};

void warnOfLoss(const VariantDesign& design, std::vector<std::string>& warnings) {
    if (!design.conversion || design.conversion->lostEnergy <= kNotableLostEnergy)
        return;
    warnings.push_back(
        "at " + hertz(design.variant.sampleRate) + " the device holds " +
        std::to_string(design.variant.maxTaps) + " taps, and the end of a filter was cut: " +
        fixed(10 * std::log10(design.conversion->lostEnergy), 1) + " dB of its energy");
}

void warnOfDeviation(const VariantDesign& design, std::vector<std::string>& warnings) {
    if (!design.conversion || design.conversion->deviation <= kAllowedDeviation)
        return;
    warnings.push_back("at " + hertz(design.variant.sampleRate) +
                       " the resampled response deviates by up to " +
                       fixed(design.conversion->deviation, 2) + " dB: give files at this rate");
}

struct Boost {
    double gain;       // dB
    double frequency;  // Hz
};

/// The largest boost of a speaker in any variant.
Boost largestBoost(const FilterDesign& design, std::size_t speaker) {
    Boost largest{-kInfinite, 0};
    for (const auto& variant : design.variants) {
        const auto& taps = variant.taps[speaker];
        const auto peak = peakOf(std::vector<double>(taps.begin(), taps.end()));
        if (peak.gain > largest.gain)
            largest = {peak.gain, peak.cycles * variant.variant.sampleRate};
    }
    return largest;
}

void warnOfGain(const FilterDesign& design, const std::vector<std::string>& names,
                std::vector<std::string>& warnings) {
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto boost = largestBoost(design, i);
        const std::string speaker = speakerText(i, names[i]);
        if (boost.gain == -kInfinite) {
            warnings.push_back(speaker + ": every tap is 0, it will be silent");
        } else if (boost.gain > kNotableBoost) {
            warnings.push_back(speaker + ": the filter amplifies by " + fixed(boost.gain, 1) +
                               " dB at " + hertz(std::round(boost.frequency)) +
                               "; --gain lowers it");
        }
    }
}

}  // namespace

void checkCapacity(const FilterFile& file, const std::vector<Variant>& variants) {
    std::size_t taps = 0;
    for (const auto& channel : file.channels)
        taps = std::max(taps, significant(channel).size());
    for (const auto& variant : variants)
        if (sameRate(file.sampleRate, variant.sampleRate) && taps > variant.maxTaps)
            refuseTooLong(file.name(), taps, file.sampleRate, variant);
}

FilterDesign designFilters(const std::vector<SpeakerFilters>& speakers,
                           const std::vector<std::string>& speakerNames,
                           const std::vector<Variant>& variants) {
    FilterDesign design;
    for (const auto& variant : variants) {
        design.variants.push_back(VariantDesigner(speakers, variant).make());
        warnOfLoss(design.variants.back(), design.warnings);
        warnOfDeviation(design.variants.back(), design.warnings);
    }
    warnOfGain(design, speakerNames, design.warnings);
    return design;
}

}  // namespace calibrate
