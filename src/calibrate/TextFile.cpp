#include "calibrate/TextFile.h"

#include "calibrate/Text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace calibrate {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const fs::path& path, const std::string& why) {
    throw BadInput(printable(path.string()) + ": " + why);
}

class Descriptor {
public:
    explicit Descriptor(const fs::path& path)
        : descriptor_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {}
    ~Descriptor() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// False with errno when the system refuses.
    bool writeAll(std::string_view text) const {
        while (descriptor_ >= 0 && !text.empty()) {
            const auto count = ::write(descriptor_, text.data(), text.size());
            if (count < 0 && errno != EINTR)
                return false;
            text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        return descriptor_ >= 0 && fsync(descriptor_) == 0;
    }

private:
    const int descriptor_;
};

}  // namespace

WriteError::WriteError(fs::path path, const std::string& reason)
    : OutputError(printable(path.string()) + ": cannot be written: " + reason),
      path_(std::move(path)),
      reason_(reason) {
}

void checkReadable(const fs::path& path) {
    std::error_code error;
    const auto status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found)
        refuse(path, "no such file");
    if (error)
        refuse(path, "cannot be read: " + error.message());
    if (!fs::is_regular_file(status))
        refuse(path, "is no regular file");
    if (!std::ifstream(path, std::ios::binary))
        refuse(path, std::string("cannot be read: ") + std::strerror(errno));
}

std::string readTextFile(const fs::path& path, std::size_t most) {
    checkReadable(path);
    std::ifstream file(path, std::ios::binary);
    std::string text;
    char block[65536];
    while (file.read(block, sizeof block) || file.gcount() > 0) {
        text.append(block, static_cast<std::size_t>(file.gcount()));
        if (text.size() > most)
            refuse(path, "has more than " + std::to_string(most) + " bytes");
    }
    return text;
}

void writeTextFile(const fs::path& path, std::string_view text) {
    if (!Descriptor(path).writeAll(text))
        throw WriteError(path, std::strerror(errno));
}

}  // namespace calibrate
