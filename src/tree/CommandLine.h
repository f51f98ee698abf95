#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tree {

/// What the user asks for.
struct Command {
    enum class Verb { List, Get, Set, Watch, Invoke };

    Verb verb{Verb::List};
    std::string socket;                  ///< empty: to be found
    std::string stateDirectory;          ///< of the device; empty: to be found
    bool json{false};                    ///< list, get
    std::string path;                    ///< the node, or the prefix to list
    std::string value;                   ///< set, and the arguments of invoke
    std::string type;                    ///< set; empty: the node's
    std::vector<std::string> prefixes;   ///< watch
    bool present{false};                 ///< watch
    std::optional<std::size_t> changes;  ///< watch: end after so many; none: never
};

/// The outcome of parsing: a command, or the exit code with which to end at once.
struct ParsedCommandLine {
    std::optional<Command> command;
    int exitCode{0};
};

/// Parses the arguments. Help and version go to standard output, a usage error to standard error.
ParsedCommandLine parseCommandLine(int argc, const char* const* argv);

}  // namespace tree
