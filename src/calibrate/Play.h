#pragma once

#include "calibrate/Console.h"
#include "calibrate/EndpointClient.h"
#include "calibrate/Stimulus.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace calibrate {

struct StimulusOptions {
    std::vector<std::string> speakers;  ///< names or indices, in play order; none: all
    int variant{0};
    std::chrono::milliseconds startIn{0};
    std::optional<double> gain;  ///< dB, for the time of playing; none: what each speaker has
};

/// The stimulus that the options mean, as the device describes it.
Stimulus readStimulus(EndpointClient& client, protocol::StimulusType type,
                      const StimulusOptions& options);

/// "speaker 0 "Front left"".
std::string describe(const Stimulus::Speaker& speaker);

/// Has the device play a sweep through each speaker.
void sweep(EndpointClient& client, const StimulusOptions& options, const Console& console);

/// Has the device play pink noise through each speaker in turn, for `duration` or until the command
/// is interrupted.
void noise(EndpointClient& client, const StimulusOptions& options,
           std::optional<std::chrono::duration<double>> duration, const Console& console);

}  // namespace calibrate
