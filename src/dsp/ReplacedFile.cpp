#include "dsp/ReplacedFile.h"

#include "dsp/RegularFile.h"
#include "dsp/ToolError.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace dsp {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const fs::path& file, const std::error_code& error) {
    throw ToolError(file, "cannot be written: " + error.message());
}

/// weakly_canonical() takes a link to what is not there for a name that is free.
fs::path resolved(const fs::path& file) {
    fs::path path = fs::weakly_canonical(fs::absolute(file));
    while (fs::is_symlink(path))
        path = fs::weakly_canonical(path.parent_path() / fs::read_symlink(path));
    return path;
}

/// False when there is something of this name already.
bool create(const fs::path& path) {
    constexpr mode_t ordinary = 0666;  // less what the umask takes, unlike with mkstemp()
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, ordinary);
    if (descriptor >= 0)
        return close(descriptor) == 0;
    if (errno != EEXIST)
        throw std::system_error(errno, std::generic_category());
    return false;
}

/// The name is short whatever the destination's is, so that it always fits.
fs::path createdBeside(const fs::path& destination) {
    constexpr int attempts = 100;
    const std::string name = ".vesk-dsp-" + std::to_string(getpid()) + "-";
    for (int i = 0; i < attempts; ++i) {
        fs::path path = destination.parent_path() / (name + std::to_string(i));
        if (create(path))
            return path;
    }
    throw std::system_error(EEXIST, std::generic_category());
}

}  // namespace

ReplacedFile::ReplacedFile(const fs::path& file) : file_(file) {
    refuseIrregularFile(file_);
    try {
        destination_ = resolved(file_);
        partial_ = createdBeside(destination_);
    } catch (const std::system_error& error) {
        fail(file_, error.code());
    }
}

ReplacedFile::~ReplacedFile() {
    std::error_code ignored;
    if (!isCommitted_)
        fs::remove(partial_, ignored);
}

void ReplacedFile::commit() {
    std::error_code error;
    fs::rename(partial_, destination_, error);
    if (error)
        fail(file_, error);
    isCommitted_ = true;
}

}  // namespace dsp
