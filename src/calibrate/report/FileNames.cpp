#include "calibrate/report/FileNames.h"

#include "calibrate/design/DesignFiles.h"

#include <algorithm>
#include <cctype>

namespace calibrate::report {
namespace {

constexpr std::size_t kLongest = 40;

std::string plain(const std::string& name) {
    std::string result;
    for (const char c : name.substr(0, kLongest)) {
        const auto byte = static_cast<unsigned char>(c);
        const bool letter = byte < 0x80 && std::isalnum(byte);
        if (letter)
            result += static_cast<char>(std::tolower(byte));
        else if (!result.empty() && result.back() != '-')
            result += '-';
    }
    if (!result.empty() && result.back() == '-')
        result.pop_back();
    return result.empty() ? "speaker" : result;
}

}  // namespace

FileNames::FileNames(std::size_t index, const std::string& speaker)
    : stem_(std::to_string(index + 1) + "-" + plain(speaker)) {
}

std::string FileNames::position(std::size_t index) {
    return "position-" + std::to_string(index + 1);
}

std::string FileNames::recording(const std::string& which) const {
    return "recordings/" + stem_ + "-" + which + ".wav";
}

std::string FileNames::impulseResponse(const std::string& which) const {
    return "impulse-responses/" + stem_ + "-" + which + ".wav";
}

std::string FileNames::response(const std::string& which) const {
    return "responses/" + stem_ + "-" + which + ".txt";
}

std::string FileNames::filterStem(double sampleRate) const {
    return std::string(kFiltersFolder) + "/" + design::filterStem(stem_, sampleRate);
}

std::string FileNames::filter(double sampleRate) const {
    return filterStem(sampleRate) + ".wav";
}

std::string FileNames::filterResponse(double sampleRate) const {
    return filterStem(sampleRate) + "-response.txt";
}

}  // namespace calibrate::report
