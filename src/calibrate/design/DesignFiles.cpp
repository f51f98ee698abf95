#include "calibrate/design/DesignFiles.h"

#include "calibrate/Text.h"
#include "calibrate/TextFile.h"
#include "calibrate/design/DesignJson.h"
#include "calibrate/design/LogGrid.h"
#include "calibrate/measurement/SoundFile.h"

#include <nlohmann/json.hpp>

#include <cctype>
#include <cmath>
#include <functional>
#include <numbers>

namespace calibrate::design {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kImpulseLength = 32'768;
constexpr double kLowest = 10;       // Hz
constexpr double kHighest = 22'000;  // Hz
constexpr double kPointsPerOctave = 48;
constexpr double kResponseDetail = 1.0 / 48;  // octaves

using Row = std::function<std::string(double frequency)>;

void writeColumns(const fs::path& path, double highest, const std::string& heading,
                  const Row& row) {
    std::string text = "* " + heading + "\n";
    const LogGrid grid(kLowest, kHighest, kPointsPerOctave);
    for (const double frequency : grid.frequencies())
        if (frequency < highest)
            text += fixed(frequency, 3) + " " + row(frequency) + "\n";
    writeTextFile(path, text);
}

std::string level(double power) {
    return fixed(10 * std::log10(std::max(power, 1e-30)), 3);
}

void writeSpectrum(const fs::path& path, const measurement::PowerSpectrum& spectrum) {
    writeColumns(path, kHighest, "Frequency (Hz)  Level (dB)", [&](double frequency) {
        return level(spectrum.meanAround(frequency, kResponseDetail));
    });
}

void writeFilterResponse(const fs::path& path, const ParallelFilter& filter) {
    const std::string heading =
        "Filter at " + hertz(filter.sampleRate) + "\n* Frequency (Hz)  Gain (dB)  Phase (degrees)";
    writeColumns(path, filter.sampleRate / 2, heading, [&](double frequency) {
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
    writeFilterResponse(stem.string() + "-response.txt", filter);
}

void writeResponses(const fs::path& stem, const SpeakerCorrection& speaker,
                    const measurement::FrequencyCurve& target) {
    writeSpectrum(stem.string() + "-before.txt", speaker.before);
    writeSpectrum(stem.string() + "-after.txt", speaker.after);
    writeColumns(stem.string() + "-target.txt", kHighest, "Frequency (Hz)  Level (dB)",
                 [&](double frequency) { return fixed(target.level(frequency), 3); });
}

void makeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw WriteError(folder, error.message());
}

/// Whatever a name holds, the file is valid UTF-8.
std::string dump(const nlohmann::ordered_json& json) {
    return json.dump(1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string filterStem(const std::string& speaker, double sampleRate) {
    return speaker + "-" + std::to_string(std::lround(sampleRate));
}

void writeFilters(const fs::path& folder, const SystemDesign& design,
                  const std::vector<std::string>& names) {
    makeFolder(folder);
    for (std::size_t i = 0; i < design.speakers.size(); ++i)
        for (const auto& filter : design.speakers[i].filters)
            writeFilter(folder / filterStem(names.at(i), filter.sampleRate), filter);
    writeTextFile(folder / kDesignFile, dump(toJson(design)));
}

void writeDesign(const fs::path& folder, const SystemDesign& design,
                 const measurement::FrequencyCurve& target) {
    std::vector<std::string> names;
    for (const auto& speaker : design.speakers)
        names.push_back(fileName(speaker.name));
    makeFolder(folder);
    for (std::size_t i = 0; i < names.size(); ++i)
        writeResponses(folder / names[i], design.speakers[i], target);
    writeFilters(folder, design, names);
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
