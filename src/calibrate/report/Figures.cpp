#include "calibrate/report/Figures.h"

#include "calibrate/Text.h"
#include "calibrate/design/Deviation.h"
#include "calibrate/measurement/Arrival.h"
#include "calibrate/measurement/Noise.h"
#include "calibrate/report/Curves.h"

#include <algorithm>
#include <cmath>

namespace calibrate::report {
namespace {

using measurement::ImpulseResponse;
using measurement::PowerSpectrum;
using measurement::Verdict;

constexpr std::size_t kLongestName = 60;  // characters

std::optional<PowerSpectrum> spectrumOf(const ImpulseResponse& response) {
    if (!isUsable(response) || measurement::largestSample(response.samples) == 0)
        return std::nullopt;
    return PowerSpectrum(response.samples, response.sampleRate);
}

std::optional<double> deviationOf(const std::optional<PowerSpectrum>& spectrum,
                                  const measurement::FrequencyCurve& target,
                                  const design::DeviationBand& band) {
    if (!spectrum)
        return std::nullopt;
    const double deviation = design::deviation(*spectrum, target, band);
    return std::isfinite(deviation) ? std::optional(deviation) : std::nullopt;
}

std::optional<double> differenceOf(const SpeakerFigures& figures,
                                   const design::DeviationBand& band) {
    if (!figures.predicted || !figures.after)
        return std::nullopt;
    const auto predicted = design::deviationCurve(*figures.predicted, {}, band);
    const auto after = design::deviationCurve(*figures.after, {}, band);
    double largest = 0;
    for (std::size_t i = 0; i < after.size(); ++i)
        largest = std::max(largest, std::abs(after[i].level - predicted[i].level));
    return largest;
}

std::vector<DecayTime> decayOf(const ImpulseResponse& response) {
    if (!isUsable(response) || measurement::largestSample(response.samples) == 0)
        return {};
    return decayTimes(response, measurement::findArrival(response).time);
}

/// Characters that turn the direction of the text behind them: U+202A to 202E, U+2066 to 2069.
bool turnsDirection(std::string_view text) {
    return text.substr(0, 2) == "\xE2\x80"
               ? text.size() > 2 && text[2] >= '\xAA' && text[2] <= '\xAE'
           : text.substr(0, 2) == "\xE2\x81"
               ? text.size() > 2 && text[2] >= '\xA6' && text[2] <= '\xA9'
               : false;
}

std::string withoutDirections(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        const bool turns = turnsDirection(std::string_view(text).substr(i, 3));
        result += turns ? '?' : text[i];
        i += turns ? 3 : 1;
    }
    return result;
}

std::string shortened(const std::string& text) {
    if (columns(text) <= kLongestName)
        return text;
    std::size_t end = 0;
    for (std::size_t count = 0; count < kLongestName; ++count) {
        do
            ++end;
        while ((static_cast<unsigned char>(text[end]) & 0xC0) == 0x80);
    }
    return text.substr(0, end) + "…";
}

template <class Visit>
void forEachSweep(const Calibration& calibration, Visit visit) {
    for (const auto& speaker : calibration.speakers) {
        for (const auto& position : speaker.positions)
            visit(position.checks);
        if (speaker.verification)
            visit(speaker.verification->sweep.checks);
    }
}

void addOnce(std::vector<std::string>& list, const std::string& text) {
    if (!text.empty() && std::ranges::find(list, text) == list.end())
        list.push_back(text);
}

}  // namespace

const design::SpeakerCorrection* correctionOf(const Calibration& calibration, std::size_t index) {
    const auto& design = calibration.design;
    return design && index < design->speakers.size() ? &design->speakers[index] : nullptr;
}

SpeakerFigures figures(const Calibration& calibration, std::size_t index) {
    const Speaker& speaker = calibration.speakers.at(index);
    SpeakerFigures result;
    if (!speaker.positions.empty()) {
        result.before = spectrumOf(speaker.positions.front().response);
        result.decayBefore = decayOf(speaker.positions.front().response);
    }
    if (const auto* correction = correctionOf(calibration, index)) {
        result.lowest = correction->lowest;
        result.highest = correction->highest;
        result.predicted = spectrumOf(correction->predicted);
        result.decayPredicted = decayOf(correction->predicted);
    }
    if (speaker.verification) {
        result.after = spectrumOf(speaker.verification->sweep.response);
        result.decayAfter = decayOf(speaker.verification->sweep.response);
    }
    const design::DeviationBand band{result.lowest, result.highest};
    const auto& target = calibration.options.correction.target;
    result.deviationBefore = deviationOf(result.before, target, band);
    result.deviationPredicted = deviationOf(result.predicted, target, band);
    result.deviationAfter = deviationOf(result.after, target, band);
    result.difference = differenceOf(result, band);
    return result;
}

std::string summary(const Speaker& speaker, const SpeakerFigures& figures) {
    const std::string name = displayName(speaker.name);
    if (!figures.deviationBefore)
        return name + ": not measured";
    const std::string before = name + ": deviation " + decibels(*figures.deviationBefore);
    if (!figures.deviationNow())
        return before + ", not corrected";
    return before + " → " + decibels(*figures.deviationNow()) +
           (figures.deviationAfter ? ", measured" : ", predicted");
}

Verdict worstVerdict(const Calibration& calibration) {
    Verdict worst = Verdict::good;
    forEachSweep(calibration, [&](const measurement::RecordingChecks& checks) {
        worst = std::max(worst, checks.worst());
    });
    for (const auto& speaker : calibration.speakers)
        if (speaker.verification)
            worst = std::max(worst, speaker.verification->verdict);
    return worst;
}

std::vector<std::string> allWarnings(const Calibration& calibration) {
    std::vector<std::string> list;
    for (const auto& speaker : calibration.speakers)
        if (speaker.verification && speaker.verification->verdict != Verdict::good)
            addOnce(list, speaker.verification->text);
    for (const auto& warning : calibration.warnings)
        addOnce(list, warning);
    if (calibration.design)
        for (const auto& warning : calibration.design->warnings)
            addOnce(list, warning);
    forEachSweep(calibration, [&](const measurement::RecordingChecks& checks) {
        for (const auto& check : checks.checks)
            if (check.verdict != Verdict::good)
                addOnce(list, check.text);
    });
    return list;
}

std::string displayName(const std::string& name) {
    const std::string shown = shortened(withoutDirections(printable(name)));
    return shown.find_first_not_of(' ') == std::string::npos ? "loudspeaker" : shown;
}

}  // namespace calibrate::report
