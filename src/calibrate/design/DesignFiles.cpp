#include "calibrate/design/DesignFiles.h"

#include "calibrate/Text.h"
#include "calibrate/design/LogGrid.h"
#include "calibrate/measurement/SoundFile.h"

#include <nlohmann/json.hpp>

#include <cctype>
#include <cmath>
#include <fstream>
#include <functional>
#include <numbers>

namespace calibrate::design {
namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

constexpr std::size_t kImpulseLength = 32'768;
constexpr double kResponseDetail = 1.0 / 48;  // octaves

Json sectionsJson(const std::vector<Section>& sections) {
    Json list = Json::array();
    for (const auto& section : sections)
        list.push_back(
            {{"a1", section.a1}, {"a2", section.a2}, {"b0", section.b0}, {"b1", section.b1}});
    return list;
}

Json filterJson(const ParallelFilter& filter) {
    return {{"sample_rate_hz", filter.sampleRate},
            {"taps", filter.taps},
            {"sections", sectionsJson(filter.sections)}};
}

Json speakerJson(const SpeakerCorrection& speaker) {
    Json filters = Json::array();
    for (const auto& filter : speaker.filters)
        filters.push_back(filterJson(filter));
    return {{"name", speaker.name},
            {"subwoofer", speaker.subwoofer},
            {"delay_ms", 1000 * speaker.alignment.delay},
            {"gain_db", speaker.alignment.gain},
            {"arrival_ms", 1000 * speaker.arrival.time},
            {"level_db", speaker.arrival.level},
            {"inverted", speaker.arrival.inverted},
            {"range_hz", {speaker.curve.lowest, speaker.curve.highest}},
            {"deviation_before_db", speaker.deviationBefore},
            {"deviation_after_db", speaker.deviationAfter},
            {"filters", filters}};
}

Json cellJson(const BassCell& cell) {
    Json json{{"section", cell.section}, {"input", cell.input}, {"output", cell.output}};
    if (cell.section == 2 || cell.section == 4) {
        json["delay_samples"] = cell.delay;
        json["gain_db"] = cell.gain;
        return json;
    }
    json["biquads"] = Json::array();
    for (const auto& biquad : cell.biquads)
        json["biquads"].push_back({{"a1", biquad.a1},
                                   {"a2", biquad.a2},
                                   {"b0", biquad.b0},
                                   {"b1", biquad.b1},
                                   {"b2", biquad.b2}});
    return json;
}

Json bassJson(const SystemDesign& design) {
    Json variants = Json::array();
    for (std::size_t i = 0; i < design.bass->cells.size(); ++i) {
        Json cells = Json::array();
        for (const auto& cell : design.bass->cells[i])
            cells.push_back(cellJson(cell));
        variants.push_back(
            {{"sample_rate_hz", design.speakers.front().filters[i].sampleRate}, {"cells", cells}});
    }
    return {{"crossover_hz", design.bass->management.crossover},
            {"subwoofer_inverted", design.bass->management.inverted},
            {"deviations_db", design.bass->deviations},
            {"variants", variants}};
}

void writeText(const fs::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::trunc);
    file << text;
    file.close();
    if (!file)
        throw std::runtime_error(printable(path.string()) + ": could not be written");
}

using Row = std::function<std::string(double frequency)>;

void writeColumns(const fs::path& path, const std::string& heading, const Row& row) {
    std::string text = "* " + heading + "\n";
    const LogGrid grid(10, 22'000, 48);
    for (const double frequency : grid.frequencies())
        text += fixed(frequency, 3) + " " + row(frequency) + "\n";
    writeText(path, text);
}

std::string level(double power) {
    return fixed(10 * std::log10(std::max(power, 1e-30)), 3);
}

void writeSpectrum(const fs::path& path, const measurement::PowerSpectrum& spectrum) {
    writeColumns(path, "frequency (Hz), level (dB)", [&](double frequency) {
        return level(spectrum.meanAround(frequency, kResponseDetail));
    });
}

void writeFilterResponse(const fs::path& path, const ParallelFilter& filter) {
    writeColumns(path, "frequency (Hz), gain (dB), phase (degrees)", [&](double frequency) {
        const auto response = filter.response(frequency);
        return level(std::norm(response)) + " " +
               fixed(std::arg(response) * 180 / std::numbers::pi, 2);
    });
}

void writeFilter(const fs::path& stem, const ParallelFilter& filter) {
    measurement::writeSoundFile(stem.string() + ".wav",
                                {filter.sampleRate, {filter.impulseResponse(kImpulseLength)}});
    measurement::writeSoundFile(
        stem.string() + "-fir.wav",
        {filter.sampleRate, {std::vector<double>(filter.taps.begin(), filter.taps.end())}});
}

void writeSpeaker(const fs::path& stem, const SpeakerCorrection& speaker,
                  const measurement::FrequencyCurve& target) {
    for (const auto& filter : speaker.filters) {
        const auto rate = std::to_string(std::lround(filter.sampleRate));
        writeFilter(stem.string() + "-" + rate, filter);
    }
    writeSpectrum(stem.string() + "-before.txt", speaker.before);
    writeSpectrum(stem.string() + "-after.txt", speaker.after);
    writeFilterResponse(stem.string() + "-filter.txt", speaker.filters.front());
    writeColumns(stem.string() + "-target.txt", "frequency (Hz), level (dB)",
                 [&](double frequency) { return fixed(target.level(frequency), 3); });
}

}  // namespace

nlohmann::ordered_json toJson(const SystemDesign& design) {
    Json speakers = Json::array();
    for (const auto& speaker : design.speakers)
        speakers.push_back(speakerJson(speaker));
    Json json{{"format", "vesk-filter-design"},
              {"version", 1},
              {"attenuation_db", design.attenuation},
              {"speakers", speakers},
              {"warnings", design.warnings}};
    if (design.bass)
        json["bass_management"] = bassJson(design);
    return json;
}

void writeDesign(const fs::path& folder, const SystemDesign& design,
                 const measurement::FrequencyCurve& target) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw std::runtime_error(printable(folder.string()) +
                                 ": could not be made: " + error.message());
    }
    for (const auto& speaker : design.speakers)
        writeSpeaker(folder / fileName(speaker.name), speaker, target);
    writeText(folder / "design.json", toJson(design).dump(1) + "\n");
}

std::string fileName(const std::string& speaker) {
    std::string name;
    for (const char c : speaker) {
        const bool plain = std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_';
        name += plain ? c : '-';
    }
    return name.empty() || name.front() == '.' ? "speaker" + name : name;
}

}  // namespace calibrate::design
