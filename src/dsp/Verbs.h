#pragma once

#include "dsp/WavFile.h"
#include "sdk/dldsp/DiracConfiguration.h"

#include <filesystem>
#include <iosfwd>
#include <optional>

namespace dsp {

/// Where an image comes from.
struct ImageSource {
    int key{DiracSegment::kKey};                ///< of the segment
    std::optional<std::filesystem::path> file;  ///< instead of the segment
};

/// What the user asks for.
struct Command {
    enum class Verb { Process, Save };

    Verb verb{Verb::Process};
    ImageSource image;
    std::filesystem::path input;
    std::filesystem::path output;
    std::optional<unsigned> rate;  ///< Hz, instead of the file's
    bool keepsLatency{false};
};

/// Does what the command asks. What of the image cannot be used goes to `messages`, a line each.
/// Throws ToolError.
void run(const Command& command, std::ostream& messages);

/// The sound after the DSP: in step with the one before and as long, or as much longer as the
/// latency that it keeps.
Sound processed(const Sound& sound, const DiracConfiguration& image, bool keepsLatency,
                std::ostream& messages);

}  // namespace dsp
