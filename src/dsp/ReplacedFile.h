#pragma once

#include <filesystem>

namespace dsp {

/// A file that is written beside the place where it belongs, and takes that place once it is
/// complete; until then whatever is there stays. Removed when it never gets there.
///
/// Constructor and commit() throw ToolError.
class ReplacedFile {
public:
    /// Makes an empty file with a name of its own. Links are followed, also to what is not there
    /// yet; anything but a regular file is refused.
    explicit ReplacedFile(const std::filesystem::path& file);
    ~ReplacedFile();
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;

    /// Where to write.
    [[nodiscard]] const std::filesystem::path& partial() const { return partial_; }

    /// Once, after everything has been written.
    void commit();

private:
    const std::filesystem::path file_;  ///< as the caller names it
    std::filesystem::path destination_;
    std::filesystem::path partial_;
    bool isCommitted_{false};
};

}  // namespace dsp
