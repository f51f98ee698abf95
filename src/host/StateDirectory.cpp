#include "host/StateDirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace host {

namespace {

constexpr mode_t kOwnerOnly = 0700;

[[noreturn]] void fail(const std::filesystem::path& directory, const char* action, int error) {
    throw std::runtime_error(directory.string() + ": the state directory cannot be " + action +
                             ": " + std::generic_category().message(error));
}

void makeDirectories(const std::filesystem::path& directory) {
    std::filesystem::path made;
    for (const auto& part : directory) {
        made /= part;
        if (mkdir(made.c_str(), kOwnerOnly) == 0 || errno == EEXIST)
            continue;
        // A directory above may be there and yet refuse to have one made in its place.
        const int error = errno;
        std::error_code ignored;
        if (!std::filesystem::is_directory(made, ignored))
            fail(directory, "made", error);
    }
}

}  // namespace

std::string enterStateDirectory(const std::string& directory) {
    const std::filesystem::path path = std::filesystem::absolute(directory).lexically_normal();
    makeDirectories(path);
    if (chdir(path.c_str()) != 0)
        fail(path, "entered", errno);
    if (access(path.c_str(), R_OK | W_OK) != 0)
        fail(path, "used", errno);
    return path.string();
}

}  // namespace host
