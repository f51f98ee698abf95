#pragma once

#include <filesystem>

namespace dsp {

/// Throws ToolError when there is something at `path`, behind any links, that is no regular file:
/// to open a pipe may take forever, and a device is nothing to replace.
void refuseIrregularFile(const std::filesystem::path& path);

}  // namespace dsp
