#include "calibrate/design/SystemDesign.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/design/Deviation.h"
#include "calibrate/design/Prediction.h"
#include "calibrate/design/SpeakerDesign.h"
#include "calibrate/measurement/Noise.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

namespace calibrate::design {
namespace {

using measurement::Arrival;
using measurement::ImpulseResponse;

constexpr double kShortest = 0.01;  // s of a response
constexpr DeviationBand kJudged;
constexpr int kBassRounds = 3;
constexpr double kLargestStep = 6;  // dB of a sum's correction at once
constexpr double kAudible = 0.5;    // dB between the subwoofer and the others

// Largest samples of a response.
constexpr double kSilent = 1e-12;
constexpr double kLoudest = 1e6;

/// Works on one system from its responses to its cells.
class Designer {
public:
    Designer(const std::vector<MeasuredSpeaker>& speakers, const SystemOptions& options)
        : speakers_(speakers), options_(options) {
        check();
    }

    SystemDesign design() {
        for (const auto& speaker : speakers_)
            design_.speakers.push_back(correct(speaker));
        keepHeadroom();
        predictSpeakers();
        if (options_.align)
            alignSpeakers();
        if (bassManaged()) {
            for (const auto& speaker : design_.speakers)
                own_.push_back(speaker.alignment);
            manageBass();
        }
        judge();
        return std::move(design_);
    }

private:
    bool bassManaged() const {
        return options_.crossover > 0 &&
               std::ranges::any_of(speakers_, &MeasuredSpeaker::subwoofer) &&
               !std::ranges::all_of(speakers_, &MeasuredSpeaker::subwoofer);
    }

    void check() const {
        if (speakers_.empty() || options_.capacities.empty())
            throw BadInput("there is nothing to design: no speaker or no filter variant");
        checkLimits(options_.correction.limits);
        for (const auto& capacity : options_.capacities)
            checkCapacity(capacity);
        for (const auto& speaker : speakers_)
            checkResponses(speaker);
        if (options_.crossover != 0 && !(options_.crossover >= BassManagement::kLowestCrossover &&
                                         options_.crossover <= BassManagement::kHighestCrossover)) {
            throw BadInput("a crossover at " + hertz(options_.crossover) +
                           " is not from 40 to 250 Hz");
        }
    }

    void checkResponses(const MeasuredSpeaker& speaker) const {
        if (speaker.positions.empty())
            throw BadInput(speaker.name + " has no response");
        for (const auto& response : speaker.positions) {
            if (response.sampleRate != speakers_.front().positions.front().sampleRate)
                throw BadInput(speaker.name + ": all responses need the same sample rate");
            if (static_cast<double>(response.samples.size()) < kShortest * response.sampleRate)
                throw BadInput(speaker.name + ": the response is shorter than 10 ms");
            if (!std::ranges::all_of(response.samples, [](double x) { return std::isfinite(x); }))
                throw BadInput(speaker.name + ": the response holds what is no number");
            const double peak = measurement::largestSample(response.samples);
            if (peak < kSilent)
                throw BadInput(speaker.name + ": the response is silent");
            if (peak > kLoudest)
                throw BadInput(speaker.name + ": the response is far above full scale");
        }
    }

    double sampleRate() const { return speakers_.front().positions.front().sampleRate; }

    /// The range in which a speaker works: with bass management the subwoofer below twice the
    /// crossover's frequency, the others above its half.
    Limits limitsOf(const MeasuredSpeaker& speaker) const {
        Limits limits = options_.correction.limits;
        limits.highest = std::min(limits.highest, 0.46 * sampleRate());
        if (!bassManaged())
            return limits;
        if (speaker.subwoofer)
            limits.highest = std::max(2 * options_.crossover, 2 * limits.lowest);
        else
            limits.lowest = std::max(limits.lowest, options_.crossover / 2);
        return limits;
    }

    ParallelFilter filterOf(const CorrectionCurve& curve, const FilterCapacity& capacity,
                            const Limits& limits) {
        const std::tuple key(capacity.sampleRate, capacity.maxTaps, capacity.maxSections,
                             curve.lowest);
        const auto [maker, isNew] = makers_.try_emplace(key, capacity, curve.lowest);
        return maker->second.make(curve, limits);
    }

    SpeakerCorrection correct(const MeasuredSpeaker& speaker) {
        CorrectionOptions options = options_.correction;
        options.limits = limitsOf(speaker);
        const auto curve = correctionCurve(speaker.positions, options);
        std::vector<ParallelFilter> filters;
        for (const auto& capacity : options_.capacities)
            filters.push_back(filterOf(curve, capacity, options.limits));
        const auto before = meanSpectrum(speaker.positions);
        return {speaker.name,
                speaker.subwoofer,
                curve,
                std::move(filters),
                measurement::findArrival(speaker.positions.front()),
                {},
                before,
                before,
                0,
                0,
                std::max(kJudged.lowest, options.limits.lowest),
                std::min(kJudged.highest, options.limits.highest),
                {}};
    }

    /// All filters get the same factor, so that the speakers keep their balance.
    void keepHeadroom() {
        double largest = -1e9;
        for (const auto& speaker : design_.speakers)
            for (const auto& filter : speaker.filters)
                largest = std::max(largest, largestGain(filter));
        const double change = std::min(0.0, options_.correction.limits.headroom - largest);
        design_.attenuation += change;
        for (auto& speaker : design_.speakers)
            for (auto& filter : speaker.filters)
                filter.scale(std::pow(10.0, change / 20));
    }

    /// A filter of the speaker at the responses' sample rate.
    ParallelFilter filterAtResponses(const SpeakerCorrection& speaker,
                                     const MeasuredSpeaker& measured) {
        for (const auto& filter : speaker.filters) {
            if (filter.sampleRate == sampleRate())
                return filter;
        }
        FilterCapacity capacity = options_.capacities.front();
        capacity.sampleRate = sampleRate();
        auto filter = filterOf(speaker.curve, capacity, limitsOf(measured));
        filter.scale(std::pow(10.0, design_.attenuation / 20) * (isInverted(speaker) ? -1 : 1));
        return filter;
    }

    void predictSpeakers() {
        for (std::size_t i = 0; i < speakers_.size(); ++i)
            design_.speakers[i].predicted = corrected(i);
    }

    void alignSpeakers() {
        std::vector<Arrival> arrivals;
        std::vector<std::string> names;
        std::vector<SpeakerCorrection*> aligned;
        for (auto& speaker : design_.speakers) {
            if (speaker.subwoofer)
                continue;
            arrivals.push_back(measurement::findArrival(speaker.predicted));
            arrivals.back().time = speaker.arrival.time;
            names.push_back(speaker.name);
            aligned.push_back(&speaker);
        }
        if (arrivals.empty())
            return;
        const auto alignments =
            align(arrivals, names, options_.alignmentCapacity, design_.warnings);
        for (std::size_t i = 0; i < aligned.size(); ++i)
            apply(*aligned[i], alignments[i]);
    }

    static void apply(SpeakerCorrection& speaker, const Alignment& alignment) {
        speaker.alignment.delay += alignment.delay;
        speaker.alignment.gain += alignment.gain;
        speaker.predicted = aligned(speaker.predicted, alignment.gain, alignment.delay);
    }

    SpeakerLayout layout() const {
        SpeakerLayout layout;
        for (const auto& speaker : speakers_)
            layout.speakers.push_back({speaker.subwoofer, speaker.group});
        return layout;
    }

    /// Aligns the subwoofer, and corrects both again for what the crossover's sum still deviates
    /// by.
    void manageBass() {
        for (int round = 0; round < kBassRounds; ++round) {
            joinBass();
            correctSums();
        }
        // The rounds needed the filters of one rate only.
        for (std::size_t i = 0; i < speakers_.size(); ++i)
            realiseAgain(i, [this](double rate) { return rate != sampleRate(); });
        keepHeadroom();
        joinBass();
        warnOfBassLevel();
        invertSubwoofers();
        predictSubwoofers();
        addBassCells();
    }

    /// All subwoofers at once: they play the same.
    ImpulseResponse subwoofersTogether() {
        ImpulseResponse sum;
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            if (!isMain(i))
                add(sum, corrected(i));
        }
        return sum;
    }

    /// To the nearest sample, which is a small part of any period that a subwoofer plays.
    static void add(ImpulseResponse& sum, const ImpulseResponse& other) {
        if (sum.samples.empty()) {
            sum = other;
            return;
        }
        const auto shift = std::lround((other.start - sum.start) * sum.sampleRate);
        const auto length = static_cast<std::ptrdiff_t>(sum.samples.size());
        for (std::size_t i = 0; i < other.samples.size(); ++i) {
            const auto at = static_cast<std::ptrdiff_t>(i) + shift;
            if (at >= 0 && at < length)
                sum.samples[static_cast<std::size_t>(at)] += other.samples[i];
        }
    }

    bool isMain(std::size_t speaker) const { return !speakers_[speaker].subwoofer; }

    /// Finds the subwoofer's alignment for the filters as they are, and the sums that it gives.
    void joinBass() {
        const auto subwoofer = subwoofersTogether();
        std::vector<ImpulseResponse> mains;
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            if (isMain(i))
                mains.push_back(aligned(corrected(i), own_[i].gain, own_[i].delay));
        }
        const auto found = alignBass(mains, subwoofer, options_.crossover,
                                     options_.alignmentCapacity, mainGainLeft());
        auto main = mains.begin();
        SystemDesign::Bass bass{found, {}, {}};
        bass.management.alignments.clear();
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            const auto& common = isMain(i) ? found.alignments.front() : found.alignments.back();
            auto& speaker = design_.speakers[i];
            speaker.alignment = {own_[i].delay + common.delay, own_[i].gain + common.gain};
            bass.management.alignments.push_back(speaker.alignment);
            if (!isMain(i))
                continue;
            speaker.predicted = crossedOver(*main++, subwoofer, found, found.alignments.front(),
                                            found.alignments.back());
            const measurement::PowerSpectrum sum(speaker.predicted.samples, sampleRate());
            bass.deviations.push_back(deviation(sum, options_.correction.target));
        }
        design_.bass = std::move(bass);
    }

    /// What the main speakers' own alignment has left of the device's gain.
    double mainGainLeft() const {
        const double lowest = std::ranges::min(own_, {}, &Alignment::gain).gain;
        return std::max(options_.alignmentCapacity.maxGain + lowest, 0.0);
    }

    void warnOfBassLevel() {
        if (design_.bass->management.missingGain < kAudible)
            return;
        design_.warnings.push_back("The subwoofer and the other speakers stay " +
                                   fixed(design_.bass->management.missingGain, 1) +
                                   " dB apart, because the device takes no more gain back: set "
                                   "the subwoofer's own volume");
    }

    ImpulseResponse corrected(std::size_t i) {
        return predict(speakers_[i].positions.front(),
                       filterAtResponses(design_.speakers[i], speakers_[i]));
    }

    /// dB by which a main speaker's sum with the subwoofer lies below the target, on the grid.
    std::vector<double> missing(const SpeakerCorrection& main, const LogGrid& grid) const {
        const auto powers =
            grid.smooth(windowedPower(main.predicted, grid, options_.correction.window),
                        options_.correction.smoothing);
        std::vector<double> gains(grid.size());
        double mean = 0;
        double count = 0;
        for (std::size_t i = 0; i < gains.size(); ++i) {
            const double frequency = grid.frequencies()[i];
            gains[i] = options_.correction.target.level(frequency) - 10 * std::log10(powers[i]);
            if (frequency < 2 * options_.crossover)
                continue;
            mean += gains[i];
            ++count;
        }
        for (double& gain : gains)
            gain = std::clamp(gain - mean / count, -kLargestStep, kLargestStep);
        return gains;
    }

    void correctSums() {
        const LogGrid grid(options_.correction.limits.lowest, 8 * options_.crossover, 96);
        std::vector<double> shared(grid.size());
        const auto count = static_cast<double>(std::ranges::count_if(
            speakers_, [](const auto& speaker) { return !speaker.subwoofer; }));
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            if (!isMain(i))
                continue;
            const auto gains = missing(design_.speakers[i], grid);
            for (std::size_t k = 0; k < gains.size(); ++k)
                shared[k] += gains[k] / count;
            correctAgain(i, grid, gains);
        }
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            if (!isMain(i))
                correctAgain(i, grid, shared);
        }
    }

    /// How much of the sum's correction a speaker takes at a frequency: around the crossover both
    /// take all of it, beyond that the one that is heard.
    double share(bool main, double frequency) const {
        const double octaves = std::log2(frequency / options_.crossover) * (main ? 1 : -1);
        const double upper = main ? std::clamp(4 - 2 * octaves, 0.0, 1.0) : 1;
        return upper * std::clamp(2 + 1.5 * octaves, 0.0, 1.0);
    }

    void correctAgain(std::size_t i, const LogGrid& grid, const std::vector<double>& gains) {
        auto& speaker = design_.speakers[i];
        std::vector<double> step(speaker.curve.gains.size());
        for (std::size_t k = 0; k < step.size(); ++k) {
            const double frequency = speaker.curve.grid.frequencies()[k];
            step[k] = grid.interpolate(gains, frequency) * share(isMain(i), frequency);
        }
        const auto limits = limitsOf(speakers_[i]);
        speaker.curve = adjusted(speaker.curve, step, limits);
        realiseAgain(i, [this](double rate) { return rate == sampleRate(); });
    }

    /// The filters at the sample rates that `wanted` says, for the speaker's curve as it is now.
    template <class Wanted>
    void realiseAgain(std::size_t i, const Wanted& wanted) {
        auto& speaker = design_.speakers[i];
        for (std::size_t k = 0; k < speaker.filters.size(); ++k) {
            if (!wanted(speaker.filters[k].sampleRate))
                continue;
            speaker.filters[k] =
                filterOf(speaker.curve, options_.capacities[k], limitsOf(speakers_[i]));
            speaker.filters[k].scale(std::pow(10.0, design_.attenuation / 20));
        }
    }

    /// A polarity that the crossover wants is in the subwoofers' filters.
    void invertSubwoofers() {
        subwoofersInverted_ = design_.bass->management.inverted;
        for (auto& speaker : design_.speakers) {
            if (isInverted(speaker))
                invert(speaker);
        }
    }

    bool isInverted(const SpeakerCorrection& speaker) const {
        return speaker.subwoofer && subwoofersInverted_;
    }

    /// A subwoofer by itself, as the crossover has left it.
    void predictSubwoofers() {
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            auto& speaker = design_.speakers[i];
            if (!isMain(i))
                speaker.predicted =
                    aligned(corrected(i), speaker.alignment.gain, speaker.alignment.delay);
        }
    }

    void addBassCells() {
        for (const auto& capacity : options_.capacities)
            design_.bass->cells.push_back(bassCells(layout(), design_.bass->management,
                                                    options_.bassCapacity, capacity.sampleRate));
    }

    static void invert(SpeakerCorrection& speaker) {
        for (auto& filter : speaker.filters)
            filter.scale(-1);
    }

    void judge() {
        for (auto& speaker : design_.speakers) {
            const DeviationBand band{speaker.lowest, speaker.highest};
            const auto& target = options_.correction.target;
            speaker.after = predict(speaker.before, speaker.filters.front());
            speaker.deviationBefore = deviation(speaker.before, target, band);
            speaker.deviationAfter = deviation(speaker.after, target, band);
            if (design_.bass && !speaker.subwoofer)
                judgeSum(speaker);
        }
    }

    /// With bass management a main speaker is heard together with the subwoofer.
    void judgeSum(SpeakerCorrection& speaker) const {
        speaker.lowest = kJudged.lowest;
        speaker.after = measurement::PowerSpectrum(speaker.predicted.samples, sampleRate());
        speaker.deviationBefore = deviation(speaker.before, options_.correction.target);
        speaker.deviationAfter = deviation(speaker.after, options_.correction.target);
    }

    const std::vector<MeasuredSpeaker>& speakers_;
    const SystemOptions& options_;
    SystemDesign design_;
    std::vector<Alignment> own_;  ///< each speaker's, before the bass has its say
    bool subwoofersInverted_{false};
    std::map<std::tuple<double, std::size_t, std::size_t, double>, FilterMaker> makers_;
};

}  // namespace

SystemDesign designSystem(const std::vector<MeasuredSpeaker>& speakers,
                          const SystemOptions& options) {
    return Designer(speakers, options).design();
}

}  // namespace calibrate::design
