#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace dsp {

/// Why the tool cannot do what it was asked for, for a person to read.
class ToolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;

    /// What is wrong with a file.
    ToolError(const std::filesystem::path& file, const std::string& reason)
        : std::runtime_error(file.string() + ": " + reason) {}
};

}  // namespace dsp
