#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"

#include <optional>
#include <string>

namespace calibrate {

/// New texts of a slot; what is not given keeps its value.
struct RenameOptions {
    int slot{0};
    std::optional<std::string> name;
    std::optional<std::string> type;
    std::optional<std::string> description;
};

void rename(EndpointClient& client, const RenameOptions& options, const Console& console);

}  // namespace calibrate
