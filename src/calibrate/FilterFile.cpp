#include "calibrate/FilterFile.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/TextFile.h"

#include <sndfile.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace calibrate {
namespace {

namespace fs = std::filesystem;

/// Samples of all channels that a file may hold: more than a minute of audio, far from any filter.
constexpr std::size_t kMaxSamples = std::size_t{1} << 22;

constexpr double kMinSampleRate = 8'000;
constexpr double kMaxSampleRate = 768'000;

std::string nameOf(const fs::path& path) {
    return printable(path.string());
}

[[noreturn]] void refuse(const fs::path& path, const std::string& why) {
    throw BadInput(nameOf(path) + ": " + why);
}

[[noreturn]] void refuseTooLarge(const fs::path& path) {
    refuse(path,
           "more than " + std::to_string(kMaxSamples) + " samples: this is no correction filter");
}

std::string lowerCaseExtension(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool isOneOf(std::string_view extension, std::initializer_list<std::string_view> list) {
    return std::find(list.begin(), list.end(), extension) != list.end();
}

void checkFile(const fs::path& path) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored))
        refuse(path, "is a directory; name the files in it");
    checkReadable(path);
}

double headerlessRate(const fs::path& path, const HeaderlessFormat& format) {
    if (!format.sampleRate)
        refuse(path, "the file does not tell its sample rate: give --rate, such as --rate 48000");
    return *format.sampleRate;
}

std::vector<std::vector<double>> deinterleave(std::span<const double> samples,
                                              std::size_t channels) {
    std::vector<std::vector<double>> result(channels);
    for (std::size_t channel = 0; channel < channels; ++channel) {
        result[channel].reserve(samples.size() / channels);
        for (std::size_t i = channel; i < samples.size(); i += channels)
            result[channel].push_back(samples[i]);
    }
    return result;
}

// ---- Files with a header ------------------------------------------------------------------------

using SoundFile = std::unique_ptr<SNDFILE, decltype(&sf_close)>;

std::vector<double> readFrames(const fs::path& path, SNDFILE* file, std::size_t channels) {
    constexpr std::size_t kFrames = 4096;
    std::vector<double> samples;
    std::vector<double> block(kFrames * channels);
    for (;;) {
        const auto frames = sf_readf_double(file, block.data(), static_cast<sf_count_t>(kFrames));
        if (frames <= 0)
            break;
        const auto count =
            static_cast<std::ptrdiff_t>(frames) * static_cast<std::ptrdiff_t>(channels);
        samples.insert(samples.end(), block.begin(), block.begin() + count);
        if (samples.size() > kMaxSamples)
            refuseTooLarge(path);
    }
    if (sf_error(file) != SF_ERR_NO_ERROR)
        refuse(path, std::string("is damaged: ") + sf_strerror(file));
    return samples;
}

FilterFile readSoundFile(const fs::path& path) {
    SF_INFO info{};
    const SoundFile file(sf_open(path.c_str(), SFM_READ, &info), &sf_close);
    if (!file)
        refuse(path, std::string("is no sound file that can be read: ") + sf_strerror(nullptr));
    const auto channels = static_cast<std::size_t>(info.channels);
    return {path, static_cast<double>(info.samplerate),
            deinterleave(readFrames(path, file.get(), channels), channels)};
}

// ---- Files without a header ---------------------------------------------------------------------

float littleEndianFloat(const char* bytes) {
    std::uint32_t bits = 0;
    for (unsigned i = 0; i < 4; ++i)
        bits |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return std::bit_cast<float>(bits);
}

std::string readBytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes;
    char block[65536];
    while (file.read(block, sizeof block) || file.gcount() > 0) {
        bytes.append(block, static_cast<std::size_t>(file.gcount()));
        if (bytes.size() > kMaxSamples * sizeof(float))
            refuseTooLarge(path);
    }
    return bytes;
}

FilterFile readRawFile(const fs::path& path, const HeaderlessFormat& format) {
    const double rate = headerlessRate(path, format);
    const std::string bytes = readBytes(path);
    const std::size_t frame = sizeof(float) * format.channels;
    if (bytes.size() % frame != 0) {
        refuse(path, std::to_string(bytes.size()) + " bytes are no whole number of " +
                         counted(format.channels, "32-bit float") +
                         ": this is no raw float file, or --channels is wrong");
    }
    std::vector<double> samples(bytes.size() / sizeof(float));
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<double>(littleEndianFloat(bytes.data() + i * sizeof(float)));
    return {path, rate, deinterleave(samples, format.channels)};
}

std::string_view trimmed(std::string_view line) {
    constexpr std::string_view kBlank = " \t\r";
    const auto first = line.find_first_not_of(kBlank);
    if (first == std::string_view::npos)
        return {};
    return line.substr(first, line.find_last_not_of(kBlank) - first + 1);
}

double parseTap(const fs::path& path, std::size_t lineNumber, std::string_view text) {
    const auto number = text.starts_with('+') ? text.substr(1) : text;
    double value = 0;
    const auto end = number.data() + number.size();
    const auto [stop, error] = std::from_chars(number.data(), end, value);
    if (error != std::errc{} || stop != end) {
        refuse(path, "line " + std::to_string(lineNumber) + ": \"" + printable(text.substr(0, 40)) +
                         "\" is no number; a line holds one, with a decimal point");
    }
    return value;
}

FilterFile readTextFile(const fs::path& path, const HeaderlessFormat& format) {
    const double rate = headerlessRate(path, format);
    const std::string bytes = readBytes(path);
    std::vector<double> taps;
    std::size_t lineNumber = 0;
    for (std::string_view rest = bytes; !rest.empty();) {
        const auto end = std::min(rest.find('\n'), rest.size());
        const auto line = trimmed(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        ++lineNumber;
        if (!line.empty() && std::string_view("#;*/").find(line[0]) == std::string_view::npos)
            taps.push_back(parseTap(path, lineNumber, line));
    }
    return {path, rate, {std::move(taps)}};
}

// ---- Checks -------------------------------------------------------------------------------------

void checkTaps(const FilterFile& file) {
    if (file.channels.empty() || file.taps() == 0)
        refuse(file.path, "holds no taps");
    for (std::size_t channel = 0; channel < file.channels.size(); ++channel) {
        const auto& taps = file.channels[channel];
        const auto bad = std::find_if(taps.begin(), taps.end(), [](double tap) {
            return !(std::abs(tap) <= static_cast<double>(std::numeric_limits<float>::max()));
        });
        if (bad != taps.end()) {
            refuse(file.path, "tap " + std::to_string(bad - taps.begin()) + " of channel " +
                                  std::to_string(channel) +
                                  " is no finite number: the filter is damaged");
        }
    }
}

void checkRate(const FilterFile& file) {
    if (!(file.sampleRate >= kMinSampleRate && file.sampleRate <= kMaxSampleRate)) {
        refuse(file.path, "a sample rate of " + hertz(file.sampleRate) + " is not between " +
                              hertz(kMinSampleRate) + " and " + hertz(kMaxSampleRate));
    }
}

FilterFile readByExtension(const fs::path& path, const HeaderlessFormat& format) {
    const std::string extension = lowerCaseExtension(path);
    if (isOneOf(extension, {".wav", ".wave", ".w64", ".rf64", ".aif", ".aiff", ".aifc", ".au",
                            ".caf", ".flac"}))
        return readSoundFile(path);
    if (isOneOf(extension, {".f32", ".raw", ".bin"}))
        return readRawFile(path, format);
    if (extension == ".txt")
        return readTextFile(path, format);
    refuse(path,
           "the extension tells no format: .wav (or .aif, .flac, .caf, .w64, .au), .f32, "
           ".raw or .bin for raw floats, .txt for a number on each line");
}

}  // namespace

std::string FilterFile::name() const {
    return nameOf(path);
}

FilterFile readFilterFile(const fs::path& path, const HeaderlessFormat& format) {
    checkFile(path);
    FilterFile file = readByExtension(path, format);
    checkTaps(file);
    checkRate(file);
    return file;
}

}  // namespace calibrate
