#pragma once

#include "calibrate/EndpointClient.h"

#include <chrono>
#include <string>
#include <vector>

namespace calibrate {

/// A stimulus that a device plays through some of its speakers, one after the other.
struct Stimulus {
    struct Speaker {
        int index{0};
        std::string name;
    };

    protocol::StimulusType type{protocol::STIMULUS_TYPE_LOG_SWEEP};
    int variant{0};
    std::vector<Speaker> speakers;  ///< in play order, not empty
    std::chrono::milliseconds startIn{0};
    /// How long each speaker plays, silence included; 0: not told.
    std::chrono::duration<double> length{0};

    /// Whether the device plays it again and again until it is stopped.
    bool repeats() const { return type == protocol::STIMULUS_TYPE_PINK_NOISE; }

    std::vector<int> speakerIndices() const;
};

/// The speakers that the texts name, by name or index, in their order; all without any text.
/// Throws BadInput for a text that names none or several, and for a speaker named twice.
std::vector<Stimulus::Speaker> readNamedSpeakers(EndpointClient& client,
                                                 const std::vector<std::string>& texts);

/// A stimulus as the device describes it, for these speakers.
/// Throws BadInput when the device does not have the variant, DeviceError when it has none, no
/// speakers, or describes it in a way that cannot be.
Stimulus readSweep(EndpointClient& client, int variant, std::vector<Stimulus::Speaker> speakers);
Stimulus readNoise(EndpointClient& client, int variant, std::vector<Stimulus::Speaker> speakers);

/// What is to be prepared for a stimulus. `recording`: the device's microphone is wanted with it.
protocol::StimuliPrepare preparation(const Stimulus& stimulus, bool recording);

/// When a stimulus that is started now begins, in ms since the Unix epoch by the clock here; 0: at
/// once, whatever the device's clock says.
std::uint64_t startTime(const Stimulus& stimulus);

}  // namespace calibrate
