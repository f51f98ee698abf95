#include "host/ControlSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace host {

namespace {

constexpr std::size_t kLongestPath = sizeof(sockaddr_un::sun_path) - 1;  // bytes

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    throw std::runtime_error(path + ": the control socket " + what);
}

void checkLength(const std::string& path) {
    if (path.size() > kLongestPath)
        fail(path, "cannot have this path: it has " + std::to_string(path.size()) +
                       " bytes, a socket's path at most " + std::to_string(kLongestPath) +
                       "; give another with --control");
}

/// Whether somebody accepts connections there.
bool isServed(const std::string& path) {
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (client < 0)
        throw std::system_error(errno, std::generic_category(), "socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    const bool served =
        connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ||
        errno != ECONNREFUSED;
    close(client);
    return served;
}

void makeWay(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return;
    if (!S_ISSOCK(status.st_mode))
        fail(path, "cannot be made: something else has this name");
    if (isServed(path))
        fail(path, "is served by another process");
    unlink(path.c_str());
}

}  // namespace

ControlSocket::ControlSocket(std::string path) : path_(std::move(path)) {
    checkLength(path_);
    makeWay(path_);
}

ControlSocket::~ControlSocket() {
    unlink(path_.c_str());
}

}  // namespace host
