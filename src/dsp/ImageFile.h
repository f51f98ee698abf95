#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

#include <filesystem>
#include <memory>

namespace dsp {

// An image in a file: the bytes of the segment. Both functions throw ToolError.

std::unique_ptr<DiracConfiguration> readImageFile(const std::filesystem::path& file);
/// Replaces a file as ReplacedFile does.
void writeImageFile(const std::filesystem::path& file, const DiracConfiguration& image);

}  // namespace dsp
