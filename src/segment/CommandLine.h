#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

#include <chrono>
#include <cstddef>
#include <optional>

namespace segment {

/// What the user asks for.
struct Command {
    enum class Verb { Show, Response, Taps, Watch };

    Verb verb{Verb::Show};
    int key{DiracSegment::kKey};
    bool json{false};
    std::size_t channel{0};
    std::size_t group{0};
    std::size_t points{200};
    bool raw{false};
    std::chrono::milliseconds interval{100};
    std::optional<std::size_t> changes;  ///< end after so many; none: never
};

/// The outcome of parsing: a command, or the exit code with which to end at once.
struct ParsedCommandLine {
    std::optional<Command> command;
    int exitCode{0};
};

/// Parses the arguments. Help and version go to standard output, a usage error to standard error.
ParsedCommandLine parseCommandLine(int argc, const char* const* argv);

}  // namespace segment
