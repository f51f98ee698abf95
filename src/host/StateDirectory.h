#pragma once

#include <string>

namespace host {

/// Makes `directory`, with its parents, when it is missing (for its own user only), and makes it
/// the working directory: plug-ins keep their files relative to it. Returns its absolute path.
/// Throws std::runtime_error naming the directory and what is wrong.
std::string enterStateDirectory(const std::string& directory);

}  // namespace host
