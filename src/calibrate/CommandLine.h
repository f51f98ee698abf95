#pragma once

#include "calibrate/Console.h"

#include <string>
#include <vector>

namespace calibrate {

/// Runs the command `vesk-calibrate` with `arguments`, without the program's name.
/// Returns an ExitCode; an error is one line on standard error. Throws nothing that the arguments,
/// the files or the device can cause.
int runCommandLine(const std::vector<std::string>& arguments, const Environment& environment);

}  // namespace calibrate
