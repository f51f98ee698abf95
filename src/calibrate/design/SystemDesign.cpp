#include "calibrate/design/SystemDesign.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/design/Deviation.h"
#include "calibrate/design/Prediction.h"
#include "calibrate/design/SpeakerDesign.h"

#include <algorithm>
#include <cmath>

namespace calibrate::design {
namespace {

using measurement::Arrival;
using measurement::ImpulseResponse;

constexpr double kShortest = 0.01;  // s of a response
constexpr DeviationBand kJudged;

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
        if (bassManaged())
            manageBass();
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
        if (options_.crossover != 0 && (options_.crossover < BassManagement::kLowestCrossover ||
                                        options_.crossover > BassManagement::kHighestCrossover)) {
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
            const auto silent = [](double sample) { return sample == 0; };
            if (std::ranges::all_of(response.samples, silent))
                throw BadInput(speaker.name + ": the response is silent");
            if (!std::ranges::all_of(response.samples, [](double x) { return std::isfinite(x); }))
                throw BadInput(speaker.name + ": the response holds what is no number");
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

    SpeakerCorrection correct(const MeasuredSpeaker& speaker) const {
        CorrectionOptions options = options_.correction;
        options.limits = limitsOf(speaker);
        const auto curve = correctionCurve(speaker.positions, options);
        std::vector<ParallelFilter> filters;
        for (const auto& capacity : options_.capacities)
            filters.push_back(realise(curve, capacity, options.limits));
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
        design_.attenuation = std::min(0.0, options_.correction.limits.headroom - largest);
        for (auto& speaker : design_.speakers)
            for (auto& filter : speaker.filters)
                filter.scale(std::pow(10.0, design_.attenuation / 20));
    }

    /// A filter of the speaker at the responses' sample rate.
    ParallelFilter filterAtResponses(const SpeakerCorrection& speaker,
                                     const MeasuredSpeaker& measured) const {
        for (const auto& filter : speaker.filters) {
            if (filter.sampleRate == sampleRate())
                return filter;
        }
        FilterCapacity capacity = options_.capacities.front();
        capacity.sampleRate = sampleRate();
        auto filter = realise(speaker.curve, capacity, limitsOf(measured));
        filter.scale(std::pow(10.0, design_.attenuation / 20));
        return filter;
    }

    void predictSpeakers() {
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            auto& speaker = design_.speakers[i];
            speaker.predicted =
                predict(speakers_[i].positions.front(), filterAtResponses(speaker, speakers_[i]));
        }
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

    void manageBass() {
        std::vector<ImpulseResponse> mains;
        const SpeakerCorrection* subwoofer = nullptr;
        for (const auto& speaker : design_.speakers) {
            if (speaker.subwoofer)
                subwoofer = subwoofer ? subwoofer : &speaker;
            else
                mains.push_back(speaker.predicted);
        }
        const auto found =
            alignBass(mains, subwoofer->predicted, options_.crossover, options_.alignmentCapacity);
        addBass(found, subwoofer->predicted);
    }

    /// Adds what the crossover needs to every speaker's own alignment.
    void addBass(const BassManagement& found, const ImpulseResponse subwoofer) {
        SystemDesign::Bass bass{found, {}, {}};
        bass.management.alignments.clear();
        const auto& ofMain = found.alignments.front();
        const auto& ofSubwoofer = found.alignments.back();
        for (auto& speaker : design_.speakers) {
            const auto& own = speaker.subwoofer ? ofSubwoofer : ofMain;
            speaker.alignment.delay += own.delay;
            speaker.alignment.gain += own.gain;
            if (speaker.subwoofer && found.inverted)
                invert(speaker);
            if (!speaker.subwoofer) {
                speaker.predicted =
                    crossedOver(speaker.predicted, subwoofer, found, ofMain, ofSubwoofer);
                const auto sum =
                    measurement::PowerSpectrum(speaker.predicted.samples, sampleRate());
                bass.deviations.push_back(deviation(sum, options_.correction.target));
            }
            bass.management.alignments.push_back(speaker.alignment);
        }
        for (const auto& capacity : options_.capacities)
            bass.cells.push_back(
                bassCells(layout(), bass.management, options_.bassCapacity, capacity.sampleRate));
        design_.bass = std::move(bass);
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
        }
    }

    const std::vector<MeasuredSpeaker>& speakers_;
    const SystemOptions& options_;
    SystemDesign design_;
};

}  // namespace

SystemDesign designSystem(const std::vector<MeasuredSpeaker>& speakers,
                          const SystemOptions& options) {
    return Designer(speakers, options).design();
}

}  // namespace calibrate::design
