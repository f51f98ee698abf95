#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace calibrate {

/// The text as it may be shown in a terminal: every control character, and every byte that is not
/// UTF-8, is replaced by "?". For texts that come from a device.
std::string printable(std::string_view text);

bool isUtf8(std::string_view text);

/// Whether the text holds a control character: a line break, a tabulator, an escape.
bool hasControlCharacter(std::string_view text);

/// Columns that the text takes in a terminal, one for each character.
std::size_t columns(std::string_view text);

/// The number with `decimals` digits after the point: "-0.50".
std::string fixed(double value, int decimals);

/// A level or a gain: "-12.0 dB".
std::string decibels(double value);

/// A length of time to a tenth of a second: "5.5 s".
std::string secondsText(std::chrono::duration<double> time);

/// A frequency or a sample rate as people write it: "44.1 kHz", "63 Hz".
std::string hertz(double frequency);

/// "1 tap", "2 taps".
std::string counted(std::size_t count, std::string_view noun);

/// A speaker as a person is told of it: "speaker 0 \"Left\"".
std::string speakerText(std::size_t index, std::string_view name);

/// Milliseconds since the Unix epoch as UTC, "2024-05-01 12:30:00 UTC"; empty when the number is
/// no time of the years 2000 to 2199, because then it counts something else.
std::string utcTime(long long millisecondsSinceEpoch);

}  // namespace calibrate
