#pragma once

#include "roomsim/ImageSource.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace roomsim {

struct Speaker {
    std::string name;
    std::optional<Position> position;
    double gain;  ///< linear, negative when the speaker is wired the wrong way round, 0 when dead
    std::optional<double> highPass;  ///< Hz, where the speaker's range begins
    std::optional<double> lowPass;   ///< Hz, where it ends
};

struct Microphone {
    std::string name;
    std::optional<Position> position;

    /// WAV files with the impulse responses: one for each speaker, or one file with a channel for
    /// each. Empty when they are computed.
    std::vector<std::filesystem::path> responses;

    double gain;                           ///< linear
    std::optional<double> unpluggedAfter;  ///< s of capture, after which the device disappears
};

/// What drives the room's clock.
struct Pace {
    bool lockStep;  ///< the streams themselves: it goes only as far as none of them runs dry
    double speed;   ///< else the machine's clock, this many times as fast
};

/// A room as its JSON file describes it; docs/room-simulator.md explains the keys.
struct RoomDescription {
    std::filesystem::path file;
    double speedOfSound;  ///< m/s
    std::optional<Shoebox> shoebox;
    std::vector<Speaker> speakers;        ///< one for each playback channel
    std::vector<Microphone> microphones;  ///< at least one
    std::size_t microphone;               ///< index of the one in use
    double noise;                         ///< RMS of full scale
    std::uint64_t noiseSeed;
    double latency;   ///< s from playback to capture, besides the sound's way through the air
    double driftPpm;  ///< how much too fast the capture clock runs
    Pace pace;
};

/// Reads and checks a room's file; throws RoomError. `microphone`, unless empty, is the name or the
/// index of the microphone to use, whatever the file says.
RoomDescription readRoomDescription(const std::filesystem::path& file,
                                    const std::string& microphone = {});

}  // namespace roomsim
