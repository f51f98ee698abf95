#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host {

/// The command line.
struct HostOptions {
    std::string descriptionFile;
    std::vector<std::string> workers;  ///< paths of plug-ins, empty: the module of this build
    std::optional<std::string> stateDirectory;
    std::optional<std::string> controlSocket;  ///< none: control.sock in the state directory
    std::optional<std::string> listenAddress;
    std::optional<std::string> playbackDevice;    ///< an ALSA name, empty for no sound
    std::optional<std::string> microphoneDevice;  ///< an ALSA name
    std::optional<std::string> soundFile;         ///< to be played once the device runs
    std::optional<std::string> logLevel;
    std::optional<std::string> logFile;
    std::optional<int> readyDescriptor;  ///< where to tell that the device runs
    bool printDescription{false};
};

/// The outcome of parsing: the options, or the exit code with which to end at once.
struct ParsedHostOptions {
    std::optional<HostOptions> options;
    int exitCode{0};
};

/// Parses the arguments. Help and version go to standard output, a usage error to standard error.
ParsedHostOptions parseHostOptions(int argc, const char* const* argv);

}  // namespace host
