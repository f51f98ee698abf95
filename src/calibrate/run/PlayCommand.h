#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace calibrate::run {

/// A command of the user's that has the device play a sound file, as it plays music. It runs in a
/// shell for as long as the object lives, and finds the file's path in the variable FILE; its
/// output goes to standard error.
class PlayCommand {
public:
    /// Throws OutputError when the system cannot start it.
    PlayCommand(const std::string& command, const std::filesystem::path& file);
    /// Ends it, and what it has left running, when that still runs: within about a second.
    ~PlayCommand();
    PlayCommand(const PlayCommand&) = delete;
    PlayCommand& operator=(const PlayCommand&) = delete;

    /// Throws OutputError when it has ended and says that it failed.
    void check();

private:
    bool endsInTime();

    const std::string command_;
    pid_t process_{-1};  // -1: has ended
    pid_t group_{-1};    // of it and what it has started; -1: it never began
};

}  // namespace calibrate::run
