#pragma once

#include <algorithm>
#include <cctype>
#include <string>

/// The text with letters and digits only: ctest takes brackets and semicolons in a test's name for
/// lists.
inline std::string plainName(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](unsigned char character) { return std::isalnum(character) == 0; }, '_');
    return text;
}
