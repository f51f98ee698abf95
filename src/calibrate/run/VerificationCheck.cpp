#include "calibrate/run/VerificationCheck.h"

#include "calibrate/Text.h"
#include "calibrate/design/Deviation.h"

#include <algorithm>
#include <cmath>

namespace calibrate::run {
namespace {

using measurement::ImpulseResponse;
using measurement::PowerSpectrum;
using measurement::Verdict;

struct Difference {
    double largest{0};    ///< dB, of the shapes
    double frequency{0};  ///< Hz, where that is
    double level{0};      ///< dB by which the first is louder
};

Difference difference(const PowerSpectrum& a, const PowerSpectrum& b,
                      const design::DeviationBand& band) {
    const auto first = design::deviationCurve(a, {}, band);
    const auto second = design::deviationCurve(b, {}, band);
    Difference result;
    for (std::size_t i = 0; i < first.size(); ++i) {
        const double distance = std::abs(first[i].level - second[i].level);
        if (distance > result.largest)
            result = {distance, first[i].frequency, 0};
    }
    result.level = 10 * std::log10(std::max(a.sum(band.lowest, band.highest), 1e-30) /
                                   std::max(b.sum(band.lowest, band.highest), 1e-30));
    return result;
}

PowerSpectrum spectrum(const ImpulseResponse& response) {
    return {response.samples, response.sampleRate};
}

std::string quoted(const std::string& name) {
    return '"' + name + '"';
}

std::string deviationText(const std::string& speaker, const Difference& found) {
    return quoted(speaker) + " differs from its prediction by " + decibels(found.largest) + " at " +
           hertz(std::round(found.frequency)) + ".";
}

std::string levelText(const std::string& speaker, const Difference& found) {
    return quoted(speaker) + " is " + decibels(std::abs(found.level)) +
           (found.level > 0 ? " louder" : " quieter") +
           " than predicted. Leave the volume alone while it measures, and run again.";
}

std::string unfilteredText(const std::string& speaker) {
    return quoted(speaker) +
           " sounds as it did without the correction: what the device plays does not go through "
           "the filter. Check with 'vesk-calibrate mode' that its correction is on, and that its "
           "DSP runs.";
}

struct Finding {
    Verdict verdict;
    std::string text;
};

Path pathOf(const Difference& toPrediction, const Difference& toBefore,
            const VerificationTolerance& tolerance) {
    if (toPrediction.largest < toBefore.largest / 2)
        return Path::throughFilter;
    const bool isAsBefore =
        toBefore.largest < toPrediction.largest / 2 && std::abs(toBefore.level) < tolerance.level;
    return isAsBefore ? Path::pastFilter : Path::unknown;
}

Finding findingOf(const std::string& speaker, const Difference& toPrediction, Path path,
                  const VerificationTolerance& tolerance) {
    const bool isFar =
        toPrediction.largest > tolerance.usable || std::abs(toPrediction.level) > tolerance.level;
    if (isFar && path == Path::pastFilter)
        return {Verdict::unusable, unfilteredText(speaker)};
    if (toPrediction.largest > tolerance.usable) {
        return {Verdict::unusable, deviationText(speaker, toPrediction) +
                                       " Leave the microphone and the loudspeakers where they "
                                       "are, keep the room quiet, and run again."};
    }
    if (isFar)
        return {Verdict::unusable, levelText(speaker, toPrediction)};
    return {toPrediction.largest > tolerance.good ? Verdict::poor : Verdict::good,
            deviationText(speaker, toPrediction)};
}

}  // namespace

JudgedVerification judge(report::SweepResult sweep, const report::SweepResult& before,
                         const design::SpeakerCorrection& correction,
                         const VerificationTolerance& tolerance) {
    if (sweep.checks.worst() == Verdict::unusable) {
        const std::string text = sweep.checks.summary();
        return {{std::move(sweep), Verdict::unusable, text}};
    }
    const design::DeviationBand band{correction.lowest, correction.highest};
    const auto after = spectrum(sweep.response);
    const auto toPrediction = difference(after, spectrum(correction.predicted), band);
    const auto path =
        pathOf(toPrediction, difference(after, spectrum(before.response), band), tolerance);
    auto finding = findingOf(sweep.recording.speaker, toPrediction, path, tolerance);
    return {{std::move(sweep), finding.verdict, std::move(finding.text)}, path};
}

}  // namespace calibrate::run
