#pragma once

#include <stdexcept>

namespace tree {

/// The device has refused a call, or the answer is not what was asked for.
class RefusedError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// No device answers.
class UnreachableError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace tree
