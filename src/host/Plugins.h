#pragma once

#include <string>
#include <vector>

namespace host {

/// The absolute paths of the plug-ins to run: `given`, or when that is empty the module that
/// belongs to this executable, looked for beside it and in the library folders of an installation
/// and of a build. Throws std::runtime_error, naming the place, when there is no such file.
std::vector<std::string> pluginPaths(const std::vector<std::string>& given);

}  // namespace host
