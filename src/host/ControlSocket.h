#pragma once

#include <string>

namespace host {

/// The file of a Unix-domain socket that this process is about to serve.
class ControlSocket {
public:
    /// Makes way for the socket at `path`: a file left behind by a process that is gone is removed.
    /// Throws std::runtime_error when the path is too long for a socket, when another process
    /// serves it, or when something else has the name.
    explicit ControlSocket(std::string path);
    /// Removes the file.
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

    const std::string& path() const { return path_; }

private:
    const std::string path_;
};

}  // namespace host
