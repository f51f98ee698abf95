#pragma once

#include "calibrate/Errors.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace calibrate {

/// A file cannot be written. what() names it and says why.
class WriteError : public OutputError {
public:
    WriteError(std::filesystem::path path, const std::string& reason);

    const std::filesystem::path& path() const { return path_; }
    const std::string& reason() const { return reason_; }

private:
    std::filesystem::path path_;
    std::string reason_;
};

/// Throws BadInput that names a file when it is missing, no regular file or cannot be opened.
void checkReadable(const std::filesystem::path& path);

/// The whole of a regular file. Throws BadInput that names it when it is missing, cannot be read or
/// has more than `most` bytes.
std::string readTextFile(const std::filesystem::path& path, std::size_t most);

/// Makes a file, or replaces one, and returns when the text is on the disk. Throws WriteError.
void writeTextFile(const std::filesystem::path& path, std::string_view text);

}  // namespace calibrate
