#pragma once

#include "dsp/Verbs.h"

#include <optional>

namespace dsp {

/// The outcome of parsing: a command, or the exit code with which to end at once.
struct ParsedCommandLine {
    std::optional<Command> command;
    int exitCode{0};
};

/// Parses the arguments. Help and version go to standard output, a usage error to standard error.
ParsedCommandLine parseCommandLine(int argc, const char* const* argv);

}  // namespace dsp
