#include "support/Isolation.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

constexpr int kNamespaces = CLONE_NEWIPC | CLONE_NEWNET;

/// Keeps the process's identity inside the user namespace that it has just entered.
bool mapIdentity(uid_t user, gid_t group) {
    const auto write = [](const char* file, const std::string& text) {
        std::ofstream out(file);
        return static_cast<bool>(out << text << std::flush);
    };
    return write("/proc/self/setgroups", "deny") &&
           write("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1") &&
           write("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
}

bool enterNamespaces() {
    if (unshare(kNamespaces) == 0)
        return true;
    const uid_t user = getuid();
    const gid_t group = getgid();
    return unshare(CLONE_NEWUSER | kNamespaces) == 0 && mapIdentity(user, group);
}

bool isolated = false;

bool setLoopback(int flags) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0)
        return false;
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    request.ifr_flags = static_cast<short>(flags);
    const bool done = ioctl(socket, SIOCSIFFLAGS, &request) == 0;
    close(socket);
    return done;
}

bool raiseLoopback() {
    return setLoopback(IFF_UP | IFF_RUNNING);
}

}  // namespace

bool isolateFromMachine() {
    isolated = enterNamespaces() && raiseLoopback();
    return isolated;
}

bool isIsolated() {
    return isolated;
}

PulledCable::PulledCable() {
    if (!isolated || !setLoopback(0))
        throw std::runtime_error("There is no link of our own");
}

PulledCable::~PulledCable() {
    raiseLoopback();
}
