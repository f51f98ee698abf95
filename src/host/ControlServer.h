#pragma once

#include <memory>
#include <string>

namespace platform {
class Tree;
}

namespace host {

/// Serves the control protocol for a tree on a Unix-domain socket that only the process's own user
/// can open.
class ControlServer {
public:
    /// The path must be absolute. Throws std::runtime_error, naming it, when it cannot be served.
    ControlServer(platform::Tree& tree, const std::string& socketPath);

    /// Ends all calls, watches included, and removes the socket.
    ~ControlServer();

    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

private:
    class Private;
    const std::unique_ptr<Private> private_;
};

}  // namespace host
