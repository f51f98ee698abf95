#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"
#include "calibrate/Microphone.h"
#include "calibrate/Play.h"

#include <chrono>
#include <filesystem>
#include <optional>

namespace calibrate {

struct RecordOptions {
    std::filesystem::path file;
    bool overwrite{false};
    MicrophoneChoice microphone;
    std::optional<std::chrono::duration<double>> duration;  ///< none: as long as there is sound
    std::optional<protocol::StimulusType> stimulus;         ///< played meanwhile; none: nothing is
    StimulusOptions playing;                                ///< of that stimulus
};

/// Records a microphone to a WAV file: until the stimulus has ended, for the duration,
/// or until the command is interrupted. However it ends, what came is in the file, and its levels
/// are reported.
void record(EndpointClient& client, const RecordOptions& options, const Console& console);

}  // namespace calibrate
