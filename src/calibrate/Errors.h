#pragma once

#include <stdexcept>
#include <string>

namespace calibrate {

/// What the command answers to the shell.
enum ExitCode {
    kExitOk = 0,
    kExitDevice = 1,        ///< the device cannot be reached, refused or failed; or a file did
    kExitUsage = 2,         ///< the command line or a file is wrong
    kExitInterrupted = 130  ///< Ctrl-C; another signal n ends the process with 128 + n
};

/// The command line or a file is wrong: nothing was changed on the device that stays.
class BadInput : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The user wants the command to end.
class Interrupted : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A result cannot be written.
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A call to the device failed. what() is one line for the user.
class DeviceError : public std::runtime_error {
public:
    enum class Reason {
        unreachable,  ///< nothing answers at the address, or the connection broke
        timeout,      ///< the device took longer than the deadline
        notOffered,   ///< the device does not have the method
        rejected,     ///< the device says that an argument is wrong
        occupied,     ///< what the call needs is in use
        failed        ///< all else
    };

    DeviceError(Reason reason, const std::string& what)
        : std::runtime_error(what), reason_(reason) {}

    Reason reason() const { return reason_; }

private:
    Reason reason_;
};

}  // namespace calibrate
