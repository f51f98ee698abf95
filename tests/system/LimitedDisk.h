#pragma once

#include <filesystem>
#include <memory>

/// A small file system of its own, seen only by the thread that made it and by the processes that
/// it starts.
class LimitedDisk {
public:
    /// Mounts it at `directory`, which must exist. Null when the kernel does not allow it.
    static std::unique_ptr<LimitedDisk> mount(const std::filesystem::path& directory,
                                              std::size_t bytes);
    ~LimitedDisk();
    LimitedDisk(const LimitedDisk&) = delete;
    LimitedDisk& operator=(const LimitedDisk&) = delete;

    /// Leaves no free byte.
    void fill();
    /// Takes back what fill() took.
    void empty();

private:
    explicit LimitedDisk(std::filesystem::path directory);

    std::filesystem::path filler() const { return directory_ / "filler"; }

    const std::filesystem::path directory_;
};
