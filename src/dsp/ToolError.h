#pragma once

#include <stdexcept>

namespace dsp {

/// Why the tool cannot do what it was asked for, for a person to read.
class ToolError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace dsp
