#include "calibrate/design/BassManagement.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/design/LogGrid.h"
#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/PowerSpectrum.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>

namespace calibrate::design {
namespace {

using measurement::ImpulseResponse;
using measurement::Spectrum;
using std::numbers::pi;

Biquad butterworth(Pass pass, double frequency, double sampleRate) {
    const double k = std::tan(pi * frequency / sampleRate);
    const double norm = 1 / (1 + std::numbers::sqrt2 * k + k * k);
    const double gain = pass == Pass::low ? k * k * norm : norm;
    const double middle = pass == Pass::low ? 2 * gain : -2 * gain;
    return {static_cast<float>(2 * (k * k - 1) * norm),
            static_cast<float>((1 - std::numbers::sqrt2 * k + k * k) * norm),
            static_cast<float>(gain), static_cast<float>(middle), static_cast<float>(gain)};
}

std::complex<double> response(const std::vector<Biquad>& biquads, double frequency,
                              double sampleRate) {
    std::complex<double> product = 1;
    for (const auto& biquad : biquads)
        product *= biquad.response(frequency, sampleRate);
    return product;
}

double linear(double decibels) {
    return std::pow(10.0, decibels / 20);
}

/// The device's speakers as channels of the bass sections: mains first, then the bass input, then a
/// bass channel for each group.
class Channels {
public:
    explicit Channels(const SpeakerLayout& layout) {
        for (unsigned i = 0; i < layout.speakers.size(); ++i) {
            const auto& speaker = layout.speakers[i];
            (speaker.subwoofer ? subwoofers : mains).push_back(i);
            if (!speaker.subwoofer)
                groupOfMain.push_back(groups.emplace(speaker.group, groups.size()).first->second);
        }
    }

    unsigned mainCount() const { return static_cast<unsigned>(mains.size()); }
    unsigned bassInput() const { return mainCount(); }
    unsigned bassChannel(std::size_t group) const {
        return mainCount() + 1 + static_cast<unsigned>(group);
    }
    unsigned subwooferChannel(std::size_t subwoofer) const {
        return 2 * mainCount() + static_cast<unsigned>(subwoofer);
    }

    std::vector<unsigned> mains;       ///< the device's index of each
    std::vector<unsigned> subwoofers;  ///< the same
    std::map<unsigned, std::size_t> groups;
    std::vector<std::size_t> groupOfMain;
};

/// Delay and gain of one speaker, spread over the two sections that have some.
struct SplitDelay {
    int first{0};
    int last{0};
};

SplitDelay split(double delay, double sampleRate, int most) {
    const int samples = static_cast<int>(std::lround(delay * sampleRate));
    const int last = std::min(samples, most);
    return {std::min(samples - last, most), last};
}

void checkCells(const std::vector<BassCell>& cells, const BassCapacity& capacity) {
    std::map<unsigned, std::size_t> counts;
    for (const auto& cell : cells) {
        ++counts[cell.section];
        if (cell.biquads.size() > capacity.maxBiquads) {
            throw BadInput("the crossover needs " + counted(cell.biquads.size(), "biquad") +
                           " in a cell; the device holds " + std::to_string(capacity.maxBiquads));
        }
    }
    for (const auto& [section, count] : counts) {
        if (count > capacity.maxCells) {
            throw BadInput("bass management of these speakers needs " + std::to_string(count) +
                           " cells in section " + std::to_string(section) + "; the device holds " +
                           std::to_string(capacity.maxCells));
        }
    }
}

/// Spectra around the crossover of what a signal for each main speaker makes of both.
class CrossoverRegion {
public:
    CrossoverRegion(const std::vector<ImpulseResponse>& mains, const ImpulseResponse& subwoofer,
                    double crossover)
        : grid_(crossover / 3, crossover * 3, 24), rate_(subwoofer.sampleRate) {
        subwoofer_ = through(Pass::low, subwoofer, crossover);
        for (const auto& main : mains)
            mains_.push_back(through(Pass::high, main, crossover));
    }

    /// Standard deviation of the levels of all sums, dB.
    double roughness(double delay, double gain) const {
        double roughness = 0;
        for (const auto& main : mains_)
            roughness += std::pow(roughnessOf(main, delay, gain), 2);
        return std::sqrt(roughness / static_cast<double>(mains_.size()));
    }

private:
    using Values = std::vector<std::complex<double>>;

    Values through(Pass pass, const ImpulseResponse& response, double crossover) const {
        const std::size_t size = measurement::fftSize(
            std::max(response.samples.size(), static_cast<std::size_t>(rate_ * 1.4)));
        const auto spectrum = measurement::forwardFft(response.samples, size);
        const auto filter = linkwitzRiley(pass, crossover, rate_);
        Values values;
        for (const double frequency : grid_.frequencies()) {
            const auto bin = static_cast<std::size_t>(
                std::lround(frequency * static_cast<double>(size) / rate_));
            const double exact = static_cast<double>(bin) * rate_ / static_cast<double>(size);
            values.push_back(spectrum[bin] * design::response(filter, exact, rate_) *
                             std::polar(1.0, -2 * pi * exact * response.start));
        }
        return values;
    }

    double roughnessOf(const Values& main, double delay, double gain) const {
        std::vector<double> powers(grid_.size());
        for (std::size_t i = 0; i < grid_.size(); ++i) {
            const auto turn = std::polar(gain, -2 * pi * grid_.frequencies()[i] * delay);
            powers[i] = std::norm(main[i] + turn * subwoofer_[i]);
        }
        double sum = 0;
        double squares = 0;
        for (const double power : grid_.smooth(powers, 1.0 / 6)) {
            const double level = 10 * std::log10(std::max(power, 1e-30));
            sum += level;
            squares += level * level;
        }
        const double count = static_cast<double>(grid_.size());
        return std::sqrt(std::max(squares / count - sum * sum / (count * count), 0.0));
    }

    LogGrid grid_;
    double rate_;
    Values subwoofer_;
    std::vector<Values> mains_;
};

/// Mean level (dB) between two frequencies, each octave counting alike.
double levelBetween(const ImpulseResponse& response, double from, double to) {
    const auto spectrum = measurement::PowerSpectrum(response.samples, response.sampleRate);
    const LogGrid grid(from, to, 24);
    double sum = 0;
    for (const double frequency : grid.frequencies())
        sum += 10 * std::log10(std::max(spectrum.meanAround(frequency, 1.0 / 24), 1e-30));
    return sum / static_cast<double>(grid.size());
}

constexpr double kDelayStep = 0.2e-3;   // s, a twentieth of 250 Hz's period
constexpr double kRounding = 1e-6;      // of a number of steps
constexpr double kLongestWait = 30e-3;  // s, more is no room's, whatever the device can do
constexpr double kGainStep = 1;         // dB
constexpr double kGainReach = 3;        // dB around the gain that makes the levels equal

struct Choice {
    double delay{0};  ///< s of the subwoofer after the mains; negative: before
    double gain{0};   ///< dB
    bool inverted{false};
    double roughness{1e9};
};

Choice bestChoice(const CrossoverRegion& region, double equalGain, double maxDelay) {
    Choice best;
    const auto delays = static_cast<int>(2 * maxDelay / kDelayStep + kRounding);
    const auto gains = static_cast<int>(2 * kGainReach / kGainStep + kRounding);
    for (int i = 0; i <= delays; ++i) {
        const double delay = i * kDelayStep - maxDelay;
        for (int k = 0; k <= gains; ++k) {
            const double gain = k * kGainStep - kGainReach;
            for (const bool inverted : {false, true}) {
                const double factor = linear(equalGain + gain) * (inverted ? -1 : 1);
                const double roughness = region.roughness(delay, factor);
                if (roughness < best.roughness)
                    best = {delay, equalGain + gain, inverted, roughness};
            }
        }
    }
    return best;
}

}  // namespace

std::complex<double> Biquad::response(double frequency, double sampleRate) const {
    const auto delay = std::polar(1.0, -2 * pi * frequency / sampleRate);
    const auto value = [delay](double c0, double c1, double c2) {
        return c0 + delay * (c1 + delay * c2);
    };
    return value(static_cast<double>(b0), static_cast<double>(b1), static_cast<double>(b2)) /
           value(1, static_cast<double>(a1), static_cast<double>(a2));
}

std::vector<Biquad> linkwitzRiley(Pass pass, double frequency, double sampleRate) {
    return {2, butterworth(pass, frequency, sampleRate)};
}

std::vector<BassCell> bassCells(const SpeakerLayout& layout, const BassManagement& bass,
                                const BassCapacity& capacity, double sampleRate) {
    const Channels channels(layout);
    if (channels.subwoofers.empty() || channels.mains.empty())
        throw BadInput("bass management needs a subwoofer and a speaker that it relieves");
    const auto low = linkwitzRiley(Pass::low, bass.crossover, sampleRate);
    const auto high = linkwitzRiley(Pass::high, bass.crossover, sampleRate);
    const unsigned bassInput = channels.bassInput();
    std::vector<BassCell> cells;
    for (unsigned main = 0; main < channels.mainCount(); ++main) {
        cells.push_back({0, main, main, {}});
        cells.push_back({0, main, channels.bassChannel(channels.groupOfMain[main]), {}});
        cells.push_back({1, main, main, high});
        const unsigned speaker = channels.mains[main];
        const auto& alignment = bass.alignments.at(speaker);
        const auto delay = split(alignment.delay, sampleRate, capacity.maxDelay);
        cells.push_back({2, main, main, {}, delay.first, 0});
        cells.push_back({4, main, speaker, {}, delay.last, alignment.gain});
    }
    cells.push_back({0, bassInput, bassInput, {}});
    cells.push_back({1, bassInput, bassInput, {}});
    for (std::size_t group = 0; group < channels.groups.size(); ++group)
        cells.push_back({1, channels.bassChannel(group), channels.bassChannel(group), low});
    for (std::size_t i = 0; i < channels.subwoofers.size(); ++i) {
        const unsigned speaker = channels.subwoofers[i];
        const unsigned channel = channels.subwooferChannel(i);
        const auto& alignment = bass.alignments.at(speaker);
        const auto delay = split(alignment.delay, sampleRate, capacity.maxDelay);
        cells.push_back({2, bassInput, channel, {}, delay.first, 0});
        for (std::size_t group = 0; group < channels.groups.size(); ++group)
            cells.push_back({2, channels.bassChannel(group), channel, {}, delay.first, 0});
        cells.push_back({4, channel, speaker, {}, delay.last, alignment.gain});
    }
    std::ranges::stable_sort(cells, {}, &BassCell::section);
    checkCells(cells, capacity);
    return cells;
}

BassManagement alignBass(const std::vector<ImpulseResponse>& mains,
                         const ImpulseResponse& subwoofer, double crossover,
                         const AlignmentCapacity& capacity, double mainGainLeft) {
    double mainLevel = 0;
    for (const auto& main : mains)
        mainLevel +=
            levelBetween(main, 1.5 * crossover, 12 * crossover) / static_cast<double>(mains.size());
    const double equalGain = mainLevel - levelBetween(subwoofer, 0.4 * crossover, crossover);
    const CrossoverRegion region(mains, subwoofer, crossover);
    const auto choice = bestChoice(region, equalGain, std::min(capacity.maxDelay, kLongestWait));
    // Whoever is too loud is lowered; nothing is amplified.
    const double subwooferGain = std::clamp(std::min(choice.gain, 0.0), -capacity.maxGain, 0.0);
    const double mainGain = std::clamp(std::min(-choice.gain, 0.0), -mainGainLeft, 0.0);
    BassManagement bass{crossover, {}, choice.inverted};
    bass.missingGain = std::abs(choice.gain) + subwooferGain + mainGain;
    bass.alignments.assign(mains.size(), {std::max(-choice.delay, 0.0), mainGain});
    bass.alignments.push_back({std::max(choice.delay, 0.0), subwooferGain});
    return bass;
}

ImpulseResponse crossedOver(const ImpulseResponse& main, const ImpulseResponse& subwoofer,
                            const BassManagement& bass, const Alignment& mainAlignment,
                            const Alignment& subwooferAlignment) {
    const double rate = main.sampleRate;
    const std::size_t size =
        measurement::fftSize(2 * std::max(main.samples.size(), subwoofer.samples.size()));
    Spectrum sum = measurement::forwardFft(main.samples, size);
    const Spectrum bassSpectrum = measurement::forwardFft(subwoofer.samples, size);
    const auto high = linkwitzRiley(Pass::high, bass.crossover, rate);
    const auto low = linkwitzRiley(Pass::low, bass.crossover, rate);
    const double later = subwoofer.start + subwooferAlignment.delay;
    const double shift = later - main.start;
    const double sign = bass.inverted ? -1 : 1;
    for (std::size_t bin = 0; bin < sum.size(); ++bin) {
        const double frequency = static_cast<double>(bin) * rate / static_cast<double>(size);
        sum[bin] = sum[bin] * linear(mainAlignment.gain) * response(high, frequency, rate) *
                       std::polar(1.0, -2 * pi * frequency * mainAlignment.delay) +
                   bassSpectrum[bin] * sign * linear(subwooferAlignment.gain) *
                       response(low, frequency, rate) *
                       std::polar(1.0, -2 * pi * frequency * shift);
    }
    ImpulseResponse result{rate, measurement::inverseFft(sum, size), main.start};
    result.samples.resize(main.samples.size());
    return result;
}

}  // namespace calibrate::design
