#include "system/LimitedDisk.h"

#include <sched.h>
#include <sys/mount.h>

#include <fstream>
#include <string>
#include <vector>

std::unique_ptr<LimitedDisk> LimitedDisk::mount(const std::filesystem::path& directory,
                                                std::size_t bytes) {
    const std::string size = "size=" + std::to_string(bytes);
    const bool mounted = unshare(CLONE_NEWNS) == 0 &&
                         ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         ::mount("tmpfs", directory.c_str(), "tmpfs", 0, size.c_str()) == 0;
    return mounted ? std::unique_ptr<LimitedDisk>(new LimitedDisk(directory)) : nullptr;
}

LimitedDisk::LimitedDisk(std::filesystem::path directory) : directory_(std::move(directory)) {
}

LimitedDisk::~LimitedDisk() {
    umount2(directory_.c_str(), MNT_DETACH);
}

void LimitedDisk::fill() {
    std::ofstream out(filler(), std::ios::binary);
    const std::vector<char> page(4096);
    while (out.write(page.data(), static_cast<std::streamsize>(page.size())).flush()) {
    }
}

void LimitedDisk::empty() {
    std::filesystem::remove(filler());
}
