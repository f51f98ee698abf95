#pragma once

#include "tree/CommandLine.h"

#include <string>

namespace tree {

/// The control socket of the device that the command means: the one given, the one in the state
/// directory given or named by $VESK_STATE_DIR, else the only one that a device serves in the
/// working directory, in ./state or in a directory below it. Throws UnreachableError when there is
/// none, or more than one.
std::string deviceSocket(const Command& command);

}  // namespace tree
