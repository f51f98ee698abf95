#pragma once

#include <filesystem>

/// The working directory of the process, for as long as the object exists.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::filesystem::path& path)
        : previous_(std::filesystem::current_path()) {
        std::filesystem::current_path(path);
    }
    ~WorkingDirectory() { std::filesystem::current_path(previous_); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    const std::filesystem::path previous_;
};
