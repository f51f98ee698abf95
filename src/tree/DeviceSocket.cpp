#include "tree/DeviceSocket.h"

#include "tree/Errors.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

namespace tree {

namespace {

namespace fs = std::filesystem;

constexpr const char* kSocketName = "control.sock";
constexpr std::size_t kLongestPath = sizeof(sockaddr_un::sun_path) - 1;  // bytes

/// Whether somebody accepts connections there: a device that was killed leaves its socket behind.
bool isServed(const fs::path& path) {
    const std::string text = path.string();
    if (text.size() > kLongestPath)
        return false;
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (client < 0)
        return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, text.data(), text.size());
    const bool served =
        connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    close(client);
    return served;
}

std::vector<fs::path> directoriesBelow(const fs::path& directory) {
    std::vector<fs::path> found;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(directory, ignored))
        if (entry.is_directory(ignored))
            found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<fs::path> servedSockets() {
    std::vector<fs::path> directories{".", "state"};
    const auto below = directoriesBelow("state");
    directories.insert(directories.end(), below.begin(), below.end());
    std::vector<fs::path> served;
    for (const auto& directory : directories)
        if (isServed(directory / kSocketName))
            served.push_back(directory / kSocketName);
    return served;
}

std::string onlySocket() {
    const auto sockets = servedSockets();
    if (sockets.size() == 1)
        return sockets.front().string();
    if (sockets.empty())
        throw UnreachableError(
            "no device runs in ./, ./state/ or a directory below ./state/: "
            "name one with --socket or --state-dir");
    std::string text = "several devices run here, name one with --socket:";
    for (const auto& path : sockets)
        text += " " + path.string();
    throw UnreachableError(text);
}

std::string foundSocket(const Command& command) {
    if (!command.socket.empty())
        return command.socket;
    if (!command.stateDirectory.empty())
        return (fs::path(command.stateDirectory) / kSocketName).string();
    if (const char* const directory = std::getenv("VESK_STATE_DIR"))
        return (fs::path(directory) / kSocketName).string();
    return onlySocket();
}

}  // namespace

std::string deviceSocket(const Command& command) {
    const std::string path = foundSocket(command);
    if (path.size() > kLongestPath)
        throw UnreachableError(path + ": the path is too long for a socket");
    return path;
}

}  // namespace tree
