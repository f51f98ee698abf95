#pragma once

#include <CLI/CLI.hpp>

#include <optional>

/// What the command lines of the programs have in common.
namespace cli {

/// Wrong usage, in every program.
inline constexpr int kUsageError = 2;

/// Parses the command line, and runs what `app` calls back. None: the program goes on. Otherwise
/// the exit code with which it ends at once: help or version have been written to standard output,
/// or what is wrong, and the help, to standard error. Exceptions of callbacks come through.
std::optional<int> parse(CLI::App& app, int argc, const char* const* argv);

/// Accepts the System V key of a segment: any number but 0, which asks the system for a segment
/// that nobody else can find.
CLI::Validator segmentKey();

}  // namespace cli
