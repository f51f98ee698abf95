#include "platform/cm/DirectoryLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace platform {

namespace {

int openDirectory(const std::string& directory) {
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        throw std::runtime_error("Cannot use the state directory " + directory + ": " +
                                 std::generic_category().message(errno));
    return descriptor;
}

}  // namespace

DirectoryLock::DirectoryLock(const std::string& directory) : descriptor_(openDirectory(directory)) {
    if (flock(descriptor_, LOCK_EX | LOCK_NB) == 0)
        return;
    const std::string reason =
        errno == EWOULDBLOCK ? "another process uses it" : std::generic_category().message(errno);
    close(descriptor_);
    throw std::runtime_error("Cannot use the state directory " + directory + ": " + reason);
}

DirectoryLock::~DirectoryLock() {
    close(descriptor_);
}

}  // namespace platform
