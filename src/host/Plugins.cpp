#include "host/Plugins.h"

#include <array>
#include <filesystem>
#include <stdexcept>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr const char* kModule = "libvesk_dirac.so";
// From the executable: beside it, where it is installed, in the build.
constexpr std::array kModuleFolders{".", VESK_INSTALLED_LIBRARIES, "../modules/dirac"};

std::string existing(const fs::path& path) {
    if (!fs::is_regular_file(path))
        throw std::runtime_error(path.string() + ": there is no such worker plug-in");
    return fs::absolute(path).lexically_normal().string();
}

std::string ownModule() {
    const fs::path home = fs::read_symlink("/proc/self/exe").parent_path();
    for (const char* const folder : kModuleFolders)
        if (fs::is_regular_file(home / folder / kModule))
            return existing(home / folder / kModule);
    throw std::runtime_error((home / kModule).string() +
                             ": there is no such worker plug-in; give one with --worker");
}

}  // namespace

std::vector<std::string> pluginPaths(const std::vector<std::string>& given) {
    if (given.empty())
        return {ownModule()};
    std::vector<std::string> paths;
    paths.reserve(given.size());
    for (const auto& path : given)
        paths.push_back(existing(path));
    return paths;
}

}  // namespace host
