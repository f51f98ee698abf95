#pragma once

#include <filesystem>

/// A directory of its own, removed with everything in it by the destructor.
class ScratchDirectory {
public:
    /// Throws std::system_error when there is no place for one.
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    const std::filesystem::path path_;
};
