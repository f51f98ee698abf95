#include "support/ScratchDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace {

std::filesystem::path makeDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "vesk-XXXXXX").string();
    if (!mkdtemp(name.data()))
        throw std::system_error(errno, std::generic_category(), name);
    return name;
}

}  // namespace

ScratchDirectory::ScratchDirectory() : path_(makeDirectory()) {
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}
