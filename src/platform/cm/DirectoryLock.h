#pragma once

#include <string>

namespace platform {

/// Keeps a directory for this object alone, among all processes. Freed with the object, also when
/// the process is killed.
class DirectoryLock {
public:
    /// Throws std::runtime_error when the directory is not there or somebody else has it.
    explicit DirectoryLock(const std::string& directory);
    ~DirectoryLock();
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

private:
    const int descriptor_;
};

}  // namespace platform
