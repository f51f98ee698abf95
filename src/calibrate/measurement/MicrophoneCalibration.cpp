#include "calibrate/measurement/MicrophoneCalibration.h"

#include "calibrate/measurement/CurveFile.h"
#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/MinimumPhaseSpectrum.h"

#include <algorithm>
#include <regex>

namespace calibrate::measurement {
namespace {

constexpr std::size_t kLongestHeader = 200;

std::optional<double> sensitivityIn(const std::string& header) {
    static const std::regex named(R"(sens[a-z ]*[=: \t]\s*([-+]?[0-9]*\.?[0-9]+))",
                                  std::regex::icase);
    static const std::regex atFrequency(R"(^\s*\*\s*[0-9.]+\s*hz\s+([-+]?[0-9]*\.?[0-9]+))",
                                        std::regex::icase);
    const auto line = header.substr(0, kLongestHeader);
    std::smatch found;
    if (std::regex_search(line, found, named) || std::regex_search(line, found, atFrequency))
        return std::stod(found[1].str());
    return std::nullopt;
}

}  // namespace

MicrophoneCalibration readMicrophoneCalibration(const std::filesystem::path& path) {
    auto file = readCurveFile(path);
    MicrophoneCalibration calibration{std::move(file.curve), std::nullopt};
    for (const auto& header : file.headers) {
        if (const auto sensitivity = sensitivityIn(header); sensitivity && !calibration.sensitivity)
            calibration.sensitivity = sensitivity;
    }
    return calibration;
}

ImpulseResponse calibrated(const ImpulseResponse& response,
                           const MicrophoneCalibration& microphone) {
    const std::size_t size = fftSize(2 * response.samples.size());
    std::vector<double> gains(size / 2 + 1);
    for (std::size_t bin = 0; bin < gains.size(); ++bin) {
        const double frequency = static_cast<double>(std::max<std::size_t>(bin, 1)) *
                                 response.sampleRate / static_cast<double>(size);
        gains[bin] = -microphone.response.level(frequency);
    }
    const Spectrum correction = minimumPhaseSpectrum(gains);
    Spectrum spectrum = forwardFft(response.samples, size);
    std::transform(spectrum.begin(), spectrum.end(), correction.begin(), spectrum.begin(),
                   std::multiplies<>());
    ImpulseResponse result{response.sampleRate, inverseFft(spectrum, size), response.start};
    result.samples.resize(response.samples.size());
    return result;
}

}  // namespace calibrate::measurement
