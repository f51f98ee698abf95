#pragma once

#include <unistd.h>

#include <utility>

namespace roomsim {

/// Owns a file descriptor, or none (-1).
class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~FileDescriptor() {
        if (fd_ >= 0)
            close(fd_);
    }

    [[nodiscard]] int get() const { return fd_; }

private:
    int fd_;
};

}  // namespace roomsim
