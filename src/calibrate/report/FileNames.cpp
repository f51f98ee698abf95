#include "calibrate/report/FileNames.h"

#include <algorithm>
#include <cctype>
#include <cmath>

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

std::string rateText(double sampleRate) {
    return std::to_string(std::lround(sampleRate));
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

std::string FileNames::filter(double sampleRate) const {
    return "filters/" + stem_ + "-" + rateText(sampleRate) + ".wav";
}

std::string FileNames::filterResponse(double sampleRate) const {
    return "responses/" + stem_ + "-filter-" + rateText(sampleRate) + ".txt";
}

}  // namespace calibrate::report
