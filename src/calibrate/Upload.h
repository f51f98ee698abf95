#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"
#include "calibrate/FilterFile.h"
#include "calibrate/SpeakerMapping.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace calibrate {

struct UploadOptions {
    int slot{0};
    std::optional<std::string> name;  ///< none: the first file's name
    std::optional<std::string> type;  ///< none: by the content
    std::string description;
    std::vector<std::filesystem::path> files;  ///< laid onto the speakers in order; or else:
    std::vector<SpeakerArgument> speakers;     ///< each for the speaker that it names
    std::vector<double> gains;                 ///< dB; none, one for all files, or one for each
    HeaderlessFormat format;
    bool activate{false};
};

/// Stores the filters of files, or the design in one, in a slot. Everything is checked before
/// anything is sent.
void upload(EndpointClient& client, const UploadOptions& options, const Console& console);

}  // namespace calibrate
