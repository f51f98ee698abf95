#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

#include <filesystem>
#include <memory>

namespace dsp {

// An image in a file: the bytes of the segment. Both functions throw ToolError.

std::unique_ptr<DiracConfiguration> readImageFile(const std::filesystem::path& file);
/// A file that exists is replaced once the new one is complete.
void writeImageFile(const std::filesystem::path& file, const DiracConfiguration& image);

}  // namespace dsp
