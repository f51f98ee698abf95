#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace calibrate {
namespace {

/// Length of the UTF-8 character at the start of `text`, 0 when there is none.
std::size_t characterLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(0);
    const std::size_t length = lead < 0x80                    ? 1
                               : lead >= 0xC2 && lead < 0xE0  ? 2
                               : lead >= 0xE0 && lead < 0xF0  ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 0;
    if (length == 0 || text.size() < length)
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    const bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool surrogate = lead == 0xED && byte(1) >= 0xA0;
    const bool beyondUnicode = lead == 0xF4 && byte(1) >= 0x90;
    return overlong || surrogate || beyondUnicode ? 0 : length;
}

bool isControl(std::string_view character) {
    const auto lead = static_cast<unsigned char>(character[0]);
    if (character.size() == 1)
        return lead < 0x20 || lead == 0x7F;
    return lead == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

/// Calls `visit` with each character of the text; with an empty view for a byte that is none.
template <class Visit>
void forEachCharacter(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        visit(text.substr(0, length));
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
}

constexpr long long kYear2000 = 946'684'800'000;
constexpr long long kYear2200 = 7'258'118'400'000;

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    forEachCharacter(text, [&](std::string_view character) {
        result += character.empty() || isControl(character) ? std::string_view("?") : character;
    });
    return result;
}

bool isUtf8(std::string_view text) {
    bool valid = true;
    forEachCharacter(text,
                     [&](std::string_view character) { valid = valid && !character.empty(); });
    return valid;
}

bool hasControlCharacter(std::string_view text) {
    bool found = false;
    forEachCharacter(text, [&](std::string_view character) {
        found = found || (!character.empty() && isControl(character));
    });
    return found;
}

std::size_t columns(std::string_view text) {
    std::size_t count = 0;
    forEachCharacter(text, [&](std::string_view) { ++count; });
    return count;
}

std::string fixed(double value, int decimals) {
    char buffer[400];
    std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
    return buffer;
}

std::string decibels(double value) {
    // Adding 0 makes a negative zero positive.
    return fixed(std::round(value * 10) / 10 + 0.0, 1) + " dB";
}

std::string secondsText(std::chrono::duration<double> time) {
    return fixed(time.count(), 1) + " s";
}

std::string hertz(double frequency) {
    char buffer[64];
    const bool kilo = std::abs(frequency) >= 1000;
    std::snprintf(buffer, sizeof buffer, kilo ? "%.6g kHz" : "%.4g Hz",
                  kilo ? frequency / 1000 : frequency);
    return buffer;
}

std::string counted(std::size_t count, std::string_view noun) {
    return std::to_string(count) + ' ' + std::string(noun) + (count == 1 ? "" : "s");
}

std::string speakerText(std::size_t index, std::string_view name) {
    return "speaker " + std::to_string(index) + " \"" + printable(name) + '"';
}

std::string utcTime(long long millisecondsSinceEpoch) {
    if (millisecondsSinceEpoch < kYear2000 || millisecondsSinceEpoch >= kYear2200)
        return {};
    const auto seconds = static_cast<std::time_t>(millisecondsSinceEpoch / 1000);
    std::tm calendar{};
    gmtime_r(&seconds, &calendar);
    char buffer[40];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S UTC", &calendar);
    return buffer;
}

}  // namespace calibrate
