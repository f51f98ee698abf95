#pragma once

#include "tree/CommandLine.h"

#include <iosfwd>

namespace tree {

/// Does what the command asks and prints to `out`. Throws RefusedError or UnreachableError.
void run(const Command& command, std::ostream& out);

}  // namespace tree
