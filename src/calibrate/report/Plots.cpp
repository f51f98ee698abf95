#include "calibrate/report/Plots.h"

#include "calibrate/Text.h"
#include "calibrate/design/Deviation.h"
#include "calibrate/design/LogGrid.h"
#include "calibrate/measurement/Arrival.h"
#include "calibrate/measurement/Noise.h"
#include "calibrate/report/Chart.h"
#include "calibrate/report/Curves.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace calibrate::report {
namespace {

using measurement::FrequencyCurve;
using measurement::ImpulseResponse;
using measurement::PowerSpectrum;

constexpr double kPointsPerOctave = 36;
constexpr double kSmoothing = 1.0 / 6;  // octaves
constexpr double kLeastShown = -40;     // dB, the lowest end of an axis
constexpr double kMostShown = 25;
constexpr std::size_t kMostPositions = 12;  // lines, so that the page stays small
constexpr double kMostRatio = 90;           // dB

double levelAt(const PowerSpectrum& spectrum, double frequency) {
    return 10 * std::log10(std::max(spectrum.meanAround(frequency, kSmoothing), 1e-30));
}

/// Mean level above the target, at equal steps on the logarithmic axis.
double offsetOf(const PowerSpectrum& spectrum, const FrequencyCurve& target,
                const SpeakerFigures& figures) {
    double sum = 0;
    const auto grid = design::LogGrid(figures.lowest, figures.highest, kPointsPerOctave);
    for (const double frequency : grid.frequencies())
        sum += levelAt(spectrum, frequency) - target.level(frequency);
    return sum / static_cast<double>(grid.size());
}

Line targetLine(const FrequencyCurve& target) {
    Line line;
    const design::LogGrid grid(20, 20'000, 6);
    for (const double frequency : grid.frequencies())
        line.push_back({frequency, target.level(frequency)});
    return line;
}

Line filterLine(const design::ParallelFilter& filter) {
    Line line;
    for (const double frequency : responseFrequencies())
        if (frequency < filter.sampleRate / 2)
            line.push_back({frequency, 20 * std::log10(std::abs(filter.response(frequency)))});
    return line;
}

/// Every other point.
Line coarser(const Line& line) {
    Line result;
    for (std::size_t i = 0; i < line.size(); i += 2)
        result.push_back(line[i]);
    return result;
}

/// What one speaker's plots are drawn from.
class SpeakerPlots {
public:
    SpeakerPlots(const Calibration& calibration, std::size_t index, const SpeakerFigures& figures,
                 const LevelRange& range, std::string id)
        : speaker_(calibration.speakers.at(index)),
          correction_(correctionOf(calibration, index)),
          playsWithSubwoofer_(correction_ && calibration.design->bass && !correction_->subwoofer),
          target_(calibration.options.correction.target),
          figures_(figures),
          range_(range),
          id_(std::move(id)) {}

    Markup all() const {
        Markup result = figure(response(), id_ + "r");
        if (speaker_.positions.size() > 1)
            result += figure(positions(), id_ + "p");
        Markup small;
        if (correction_ && !correction_->filters.empty())
            small += figure(filter(), id_ + "f");
        small += figure(impulse(), id_ + "i") + figure(energy(), id_ + "e");
        if (!speaker_.positions.empty() && !speaker_.positions.front().signalToNoise.empty())
            small += figure(signalToNoise(), id_ + "n");
        if (!figures_.decayBefore.empty())
            small += figure(decay(), id_ + "d");
        return result + pair(small) + pair(waterfalls());
    }

private:
    /// Two figures beside each other where there is room.
    static Markup pair(const Markup& content) {
        return content.empty() ? content : element("div", {{"class", "pair"}}, content);
    }

    Chart response() const {
        Chart chart{"Frequency response",
                    responseDescription(),
                    audioAxis(),
                    levels(),
                    {},
                    "1/6 octave, at the first position; each curve where it fits the target "
                    "best from " +
                        hertz(figures_.lowest) + " to " + hertz(figures_.highest) + ".",
                    true};
        addResponse(chart, "before", "before", figures_.before);
        chart.series.push_back({"target", "target", targetLine(target_)});
        addResponse(chart, "predicted", "predicted", figures_.predicted);
        addResponse(chart, "measured after", "after", figures_.after);
        return chart;
    }

    void addResponse(Chart& chart, const std::string& name, const std::string& style,
                     const std::optional<PowerSpectrum>& spectrum) const {
        if (spectrum)
            chart.series.push_back({name, style, responseLine(*spectrum, target_, figures_)});
    }

    std::string responseDescription() const {
        return "Level over frequency. " + summary(speaker_, figures_) + ".";
    }

    Axis levels() const { return levelAxis(range_.from, range_.to, 5, "Level (dB)"); }

    Chart positions() const {
        Chart chart{"All positions",
                    "Levels at each position before the correction, and their mean.",
                    audioAxis(),
                    levels(),
                    {},
                    "1/6 octave."};
        const std::size_t count = std::min(speaker_.positions.size(), kMostPositions);
        for (std::size_t i = 0; i < count; ++i)
            addPosition(chart, speaker_.positions[i].response, i == 0 ? "each position" : "");
        if (correction_) {
            addResponse(chart, "mean before", "before", correction_->before);
            chart.series.push_back({"target", "target", targetLine(target_)});
            if (!playsWithSubwoofer_)
                addResponse(chart, "mean predicted", "predicted", correction_->after);
        }
        return chart;
    }

    void addPosition(Chart& chart, const ImpulseResponse& response, const std::string& name) const {
        if (isUsable(response)) {
            const PowerSpectrum spectrum(response.samples, response.sampleRate);
            chart.series.push_back(
                {name, "faint", coarser(responseLine(spectrum, target_, figures_))});
        }
    }

    Chart filter() const {
        const auto& filter = correction_->filters.front();
        const Line line = filterLine(filter);
        double low = -15;
        double high = 10;
        for (const auto& point : line)
            if (std::isfinite(point.y)) {
                low = std::min(low, std::max(point.y, kLeastShown));
                high = std::max(high, std::min(point.y, kMostShown));
            }
        return {"Correction filter",
                "Gain of the filter over frequency.",
                audioAxis(),
                levelAxis(5 * std::floor(low / 5), 5 * std::ceil(high / 5), 5, "Gain (dB)"),
                {{"", "filter", line}},
                counted(filter.taps.size(), "tap") + " and " +
                    counted(filter.sections.size(), "section") + " at " + hertz(filter.sampleRate) +
                    "."};
    }

    Chart impulse() const {
        Chart chart{"Impulse response",
                    "Waveform of the first 10 ms, from 2 ms before the direct sound.",
                    linearAxis(-2, 10, 2, "Time after the direct sound (ms)"),
                    linearAxis(-100, 100, 50, "Part of the largest sample (%)"),
                    {},
                    {}};
        chart.thin = true;
        forEachResponse([&](const ImpulseResponse& response, double arrival, const char* name,
                            const char* style) {
            chart.series.push_back(
                {name, style,
                 waveform(response, arrival, measurement::largestSample(response.samples))});
        });
        return chart;
    }

    Chart energy() const {
        Chart chart{"Energy over time",
                    "Envelope of the impulse response, decaying with the room.",
                    linearAxis(0, 300, 50, "Time after the direct sound (ms)"),
                    levelAxis(-70, 0, 10, "Level (dB)"),
                    {},
                    {}};
        chart.thin = true;
        forEachResponse([&](const ImpulseResponse& response, double arrival, const char* name,
                            const char* style) {
            chart.series.push_back({name, style, energyTimeCurve(response, arrival)});
        });
        return chart;
    }

    Chart decay() const {
        const auto& before = figures_.decayBefore;
        const auto& now = figures_.decayNow();
        const bool isMeasured = !figures_.decayAfter.empty();
        const double most = longest(before, now);
        Chart chart{"Decay time of the bass",
                    "Time in which each third of an octave decays by 60 dB.",
                    bassAxis(),
                    linearAxis(0, most, most / 4, "Time (ms)"),
                    {decayBars("before", "before", before, -1)},
                    "By third octave, T30 or T20 as ISO 3382 has it." + wordsOn("before", before) +
                        wordsOn(isMeasured ? "after" : "predicted", now)};
        if (isMeasured)
            chart.series.push_back(decayBars("measured after", "after", now, 1));
        else if (!now.empty())
            chart.series.push_back(decayBars("predicted", "predicted", now, 1));
        return chart;
    }

    /// Beside the band's centre, so that two of them fit.
    static Series decayBars(const std::string& name, const std::string& style,
                            const std::vector<DecayTime>& times, int side) {
        Series series{name, style + " slim", {}, true};
        for (const auto& band : times)
            if (band.time)
                series.points.push_back(
                    {band.frequency * std::exp2(side / 24.0), 1'000 * *band.time});
        return series;
    }

    /// ms, the upper end of an axis that is divided by four.
    static double longest(const std::vector<DecayTime>& a, const std::vector<DecayTime>& b) {
        double time = 0.4;
        for (const auto* times : {&a, &b})
            for (const auto& band : *times)
                time = std::max(time, band.time.value_or(0));
        return 400 * std::ceil(time / 0.4);
    }

    /// What bars do not show: the bands that have none, and those that have an uncertain one.
    static std::string wordsOn(const std::string& when, const std::vector<DecayTime>& times) {
        std::string hidden;
        std::string uncertain;
        for (const auto& band : times) {
            if (!band.time)
                add(hidden, band.frequency);
            else if (!band.isCertain())
                add(uncertain, band.frequency);
        }
        return (hidden.empty() ? "" : " Not measurable " + when + ": " + hidden + " Hz.") +
               (uncertain.empty()
                    ? ""
                    : " No straight decay " + when + ", so uncertain: " + uncertain + " Hz.");
    }

    static void add(std::string& list, double frequency) {
        const bool isWhole = frequency == std::floor(frequency);
        list += (list.empty() ? "" : ", ") + fixed(frequency, isWhole ? 0 : 1);
    }

    Markup waterfalls() const {
        Markup result;
        forEachResponse([&](const ImpulseResponse& response, double arrival, const char* name,
                            const char* style) {
            result += waterfallFigure(waterfall(response, arrival),
                                      "Decay of the bass, " + std::string(name), style,
                                      id_ + "w" + style);
        });
        return result;
    }

    Chart signalToNoise() const {
        Chart chart{"Signal to noise",
                    "Ratio of the sweep to the room's noise in each octave.",
                    audioAxis(),
                    levelAxis(0, kMostRatio, 30, "Ratio (dB)"),
                    {},
                    "By octave; below 20 dB the measurement is uncertain."};
        Series series{"", "after", {}, true};
        for (const auto& band : speaker_.positions.front().signalToNoise)
            series.points.push_back({band.frequency, std::clamp(band.ratio, 0.0, kMostRatio)});
        chart.series.push_back(std::move(series));
        return chart;
    }

    /// Before, and after as measured or else as predicted.
    template <class Visit>
    void forEachResponse(Visit visit) const {
        if (figures_.before)
            visitResponse(visit, speaker_.positions.front().response, "before", "before");
        if (figures_.after)
            visitResponse(visit, speaker_.verification->sweep.response, "measured after", "after");
        else if (figures_.predicted)
            visitResponse(visit, correction_->predicted, "predicted", "predicted");
    }

    template <class Visit>
    static void visitResponse(Visit visit, const ImpulseResponse& response, const char* name,
                              const char* style) {
        visit(response, measurement::findArrival(response).time, name, style);
    }

    const Speaker& speaker_;
    const design::SpeakerCorrection* const correction_;
    const bool playsWithSubwoofer_;  ///< its prediction is that of both, at the first position only
    const FrequencyCurve& target_;
    const SpeakerFigures& figures_;
    const LevelRange range_;
    const std::string id_;
};

}  // namespace

std::vector<double> responseFrequencies() {
    return design::LogGrid(20, 20'000, kPointsPerOctave).frequencies();
}

Line responseLine(const PowerSpectrum& spectrum, const FrequencyCurve& target,
                  const SpeakerFigures& figures) {
    const double offset = offsetOf(spectrum, target, figures);
    Line line;
    for (const double frequency : responseFrequencies())
        line.push_back({frequency, frequency < spectrum.highest()
                                       ? levelAt(spectrum, frequency) - offset
                                       : std::numeric_limits<double>::quiet_NaN()});
    return line;
}

LevelRange levelRange(const Calibration& calibration, const std::vector<SpeakerFigures>& all) {
    LevelRange range;
    const auto& target = calibration.options.correction.target;
    const auto include = [&](const SpeakerFigures& figures,
                             const std::optional<PowerSpectrum>& spectrum) {
        if (!spectrum)
            return;
        for (const auto& point : responseLine(*spectrum, target, figures)) {
            if (!std::isfinite(point.y) || point.x < figures.lowest || point.x > figures.highest)
                continue;
            range.from = std::min(range.from, 5 * std::floor(point.y / 5));
            range.to = std::max(range.to, 5 * std::ceil(point.y / 5));
        }
    };
    for (const auto& figures : all)
        for (const auto* spectrum : {&figures.before, &figures.predicted, &figures.after})
            include(figures, *spectrum);
    return {std::max(range.from, kLeastShown), std::min(range.to, kMostShown)};
}

Markup plots(const Calibration& calibration, std::size_t index, const SpeakerFigures& figures,
             const LevelRange& range, const std::string& id) {
    return SpeakerPlots(calibration, index, figures, range, id).all();
}

}  // namespace calibrate::report
