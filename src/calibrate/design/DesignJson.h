#pragma once

#include "calibrate/design/DeviceDesign.h"

#include <nlohmann/json_fwd.hpp>

#include <filesystem>

namespace calibrate::design {

/// A design as JSON; docs/filter-design.md describes the keys, which carry their units. Every
/// coefficient comes back from it as the float that it was.
nlohmann::ordered_json toJson(const SystemDesign& design);

/// What a device gets of a design in a file, of which toJson() made the content. Throws BadInput
/// that names the file and the place when something is missing, is no finite number, or would make
/// an unstable filter.
DeviceDesign readDesign(const std::filesystem::path& path);

}  // namespace calibrate::design
