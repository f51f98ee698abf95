#include "dsp/RegularFile.h"

#include "dsp/ToolError.h"

#include <system_error>

namespace dsp {

void refuseIrregularFile(const std::filesystem::path& path) {
    std::error_code unknown;  // whoever opens it is told why
    const auto status = std::filesystem::status(path, unknown);
    if (status_known(status) && exists(status) && !is_regular_file(status))
        throw ToolError(path, "is no regular file");
}

}  // namespace dsp
