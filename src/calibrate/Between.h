#pragma once

#include <CLI/CLI.hpp>

namespace calibrate {

/// Checks that an option's number lies between two others; "nan" does not.
CLI::Validator between(double least, double most);

}  // namespace calibrate
