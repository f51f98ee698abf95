#include "calibrate/report/ReportJson.h"

#include "calibrate/Text.h"
#include "calibrate/design/LogGrid.h"
#include "calibrate/report/Curves.h"
#include "calibrate/report/FileNames.h"
#include "calibrate/report/Plots.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace calibrate::report {
namespace {

using Json = nlohmann::ordered_json;

/// To so many decimals; null for what is no number.
Json number(double value, int decimals) {
    const double scale = std::pow(10, decimals);
    const double rounded = std::round(value * scale) / scale + 0.0;
    return std::isfinite(rounded) ? Json(rounded) : Json(nullptr);
}

Json number(const std::optional<double>& value, int decimals) {
    return value ? number(*value, decimals) : Json(nullptr);
}

Json level(const std::optional<double>& value) {
    return number(value, 2);
}

Json text(const std::string& value) {
    return value.empty() ? Json(nullptr) : Json(printable(value));
}

Json texts(const std::vector<std::string>& values) {
    Json list = Json::array();
    for (const auto& value : values)
        list.push_back(printable(value));
    return list;
}

Json deviceJson(const DeviceIdentity& device) {
    return {{"name", text(device.name)},
            {"manufacturer", text(device.manufacturer)},
            {"model", text(device.model)},
            {"uuid", text(device.uuid)},
            {"address", text(device.address)}};
}

Json versionsJson(const std::vector<Version>& versions) {
    Json json = Json::object();
    for (const auto& version : versions)
        json[printable(version.of)] = text(version.version);
    return json;
}

Json optionsJson(const Calibration& calibration) {
    const auto& correction = calibration.options.correction;
    const auto& limits = correction.limits;
    return {{"target", text(calibration.target)},
            {"range_hz", {number(limits.lowest, 1), number(limits.highest, 1)}},
            {"max_boost_db", level(limits.maxBoost)},
            {"max_cut_db", level(limits.maxCut)},
            {"max_group_delay_ms", number(1000 * limits.maxGroupDelay, 3)},
            {"headroom_db", level(limits.headroom)},
            {"smoothing_octaves", number(correction.smoothing, 4)},
            {"align", calibration.options.align},
            {"crossover_hz", number(calibration.options.crossover, 1)}};
}

Json checksJson(const measurement::RecordingChecks& checks) {
    Json list = Json::array();
    for (const auto& check : checks.checks)
        list.push_back({{"subject", measurement::subjectName(check.subject)},
                        {"verdict", measurement::verdictName(check.verdict)},
                        {"value", number(check.value, 4)},
                        {"text", printable(check.text)}});
    return list;
}

Json ratiosJson(const std::vector<measurement::BandRatio>& ratios) {
    Json list = Json::array();
    for (const auto& band : ratios)
        list.push_back(
            {{"frequency_hz", number(band.frequency, 1)}, {"ratio_db", level(band.ratio)}});
    return list;
}

Json distortionJson(const std::vector<measurement::Distortion>& products) {
    Json list = Json::array();
    for (const auto& product : products)
        list.push_back({{"order", product.order}, {"level_db", level(product.level)}});
    return list;
}

Json sweepJson(const SweepResult& sweep, const FileNames& names, const std::string& which) {
    return {{"level_dbfs", level(sweep.level)},
            {"noise_dbfs", level(sweep.noise)},
            {"verdict", measurement::verdictName(sweep.checks.worst())},
            {"checks", checksJson(sweep.checks)},
            {"signal_to_noise", ratiosJson(sweep.signalToNoise)},
            {"distortion", distortionJson(sweep.distortion)},
            {"recording",
             sweep.recording.samples.empty() ? Json(nullptr) : Json(names.recording(which))},
            {"impulse_response",
             isUsable(sweep.response) ? Json(names.impulseResponse(which)) : Json(nullptr)},
            {"response", isUsable(sweep.response) ? Json(names.response(which)) : Json(nullptr)}};
}

Json positionsJson(const Speaker& speaker, const FileNames& names) {
    Json list = Json::array();
    for (std::size_t i = 0; i < speaker.positions.size(); ++i)
        list.push_back(sweepJson(speaker.positions[i], names, FileNames::position(i)));
    return list;
}

Json verificationJson(const Speaker& speaker, const SpeakerFigures& figures,
                      const FileNames& names) {
    if (!speaker.verification)
        return nullptr;
    const auto& verification = *speaker.verification;
    return {{"verdict", measurement::verdictName(verification.verdict)},
            {"text", text(verification.text)},
            {"largest_difference_from_prediction_db", level(figures.difference)},
            {"sweep", sweepJson(verification.sweep, names, FileNames::kAfter)}};
}

Json filtersJson(const design::SpeakerCorrection& correction, const FileNames& names) {
    Json list = Json::array();
    for (const auto& filter : correction.filters)
        list.push_back({{"sample_rate_hz", filter.sampleRate},
                        {"taps", filter.taps.size()},
                        {"sections", filter.sections.size()},
                        {"impulse_response", names.filter(filter.sampleRate)},
                        {"response", names.filterResponse(filter.sampleRate)}});
    return list;
}

Json distanceJson(const measurement::Arrival& arrival, const std::optional<double>& latency) {
    return latency ? number(arrival.distance(*latency), 3) : Json(nullptr);
}

Json correctionJson(const Calibration& calibration, std::size_t index, const FileNames& names) {
    const auto* correction = correctionOf(calibration, index);
    if (!correction)
        return nullptr;
    const auto& arrival = correction->arrival;
    return {
        {"subwoofer", correction->subwoofer},
        {"arrival_ms", number(1000 * arrival.time, 3)},
        {"distance_m", distanceJson(arrival, calibration.latency)},
        {"level_db", level(arrival.level)},
        {"inverted", arrival.inverted},
        {"delay_ms", number(1000 * correction->alignment.delay, 4)},
        {"gain_db", level(correction->alignment.gain)},
        {"range_hz", {number(correction->curve.lowest, 1), number(correction->curve.highest, 1)}},
        {"filters", filtersJson(*correction, names)}};
}

Json levelsJson(const std::optional<measurement::PowerSpectrum>& spectrum,
                const measurement::FrequencyCurve& target, const SpeakerFigures& figures) {
    if (!spectrum)
        return nullptr;
    Json list = Json::array();
    for (const auto& point : responseLine(*spectrum, target, figures))
        list.push_back(level(point.y));
    return list;
}

Json curvesJson(const measurement::FrequencyCurve& target, const SpeakerFigures& figures) {
    Json frequencies = Json::array();
    Json levels = Json::array();
    for (const double frequency : responseFrequencies()) {
        frequencies.push_back(number(frequency, 3));
        levels.push_back(level(target.level(frequency)));
    }
    return {{"smoothing_octaves", number(1.0 / 6, 4)},
            {"frequency_hz", frequencies},
            {"target_db", levels},
            {"before_db", levelsJson(figures.before, target, figures)},
            {"predicted_db", levelsJson(figures.predicted, target, figures)},
            {"after_db", levelsJson(figures.after, target, figures)}};
}

Json deviationJson(const SpeakerFigures& figures) {
    return {{"band_hz", {number(figures.lowest, 1), number(figures.highest, 1)}},
            {"before_db", level(figures.deviationBefore)},
            {"predicted_db", level(figures.deviationPredicted)},
            {"after_db", level(figures.deviationAfter)}};
}

Json decayJson(const std::vector<DecayTime>& times) {
    if (times.empty())
        return nullptr;
    Json list = Json::array();
    for (const auto& band : times)
        list.push_back({{"frequency_hz", band.frequency},
                        {"time_s", number(band.time, 3)},
                        {"range_db", band.time ? Json(band.range) : Json(nullptr)},
                        {"certain", band.time ? Json(band.isCertain()) : Json(nullptr)}});
    return list;
}

Json decaysJson(const SpeakerFigures& figures) {
    return {{"before", decayJson(figures.decayBefore)},
            {"predicted", decayJson(figures.decayPredicted)},
            {"after", decayJson(figures.decayAfter)}};
}

Json speakerJson(const Calibration& calibration, std::size_t index, const SpeakerFigures& figures) {
    const Speaker& speaker = calibration.speakers[index];
    const FileNames names(index, speaker.name);
    return {{"name", printable(speaker.name)},
            {"kind", text(speaker.kind)},
            {"summary", summary(speaker, figures)},
            {"deviation", deviationJson(figures)},
            {"correction", correctionJson(calibration, index, names)},
            {"positions", positionsJson(speaker, names)},
            {"verification", verificationJson(speaker, figures, names)},
            {"bass_decay", decaysJson(figures)},
            {"curves", curvesJson(calibration.options.correction.target, figures)}};
}

Json bassJson(const Calibration& calibration) {
    if (!calibration.design || !calibration.design->bass)
        return nullptr;
    const auto& bass = *calibration.design->bass;
    return {{"crossover_hz", number(bass.management.crossover, 1)},
            {"subwoofer_inverted", bass.management.inverted}};
}

}  // namespace

Json toJson(const Calibration& calibration, const std::vector<SpeakerFigures>& figures) {
    Json speakers = Json::array();
    for (std::size_t i = 0; i < calibration.speakers.size(); ++i)
        speakers.push_back(speakerJson(calibration, i, figures.at(i)));
    const auto& design = calibration.design;
    return {{"format", "vesk-calibration-report"},
            {"version", 1},
            {"time_utc", text(utcTime(calibration.time))},
            {"verdict", measurement::verdictName(worstVerdict(calibration))},
            {"versions", versionsJson(calibration.versions)},
            {"device", deviceJson(calibration.device)},
            {"slot", calibration.slot ? Json(*calibration.slot) : Json(nullptr)},
            {"slot_name", text(calibration.slotName)},
            {"microphone",
             {{"name", text(calibration.microphone.name)},
              {"calibration", text(calibration.microphone.calibration)}}},
            {"options", optionsJson(calibration)},
            {"attenuation_db", design ? level(design->attenuation) : Json(nullptr)},
            {"latency_ms",
             calibration.latency ? number(1000 * *calibration.latency, 3) : Json(nullptr)},
            {"bass_management", bassJson(calibration)},
            {"filters", design ? Json(kFiltersFile) : Json(nullptr)},
            {"warnings", texts(allWarnings(calibration))},
            {"speakers", speakers}};
}

}  // namespace calibrate::report
