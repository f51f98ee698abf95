#pragma once

#include "calibrate/measurement/LogSweep.h"
#include "calibrate/support/EndpointDouble.h"

#include <atomic>
#include <filesystem>
#include <optional>
#include <random>
#include <set>
#include <vector>

/// A small room around an endpoint double: its microphone hears what its speakers play, and with a
/// filter in use what that makes of it. Sweeps last one and a half seconds that
/// nobody has to wait for.
///
/// The members may be changed between the commands that are run against the device; the room must
/// outlive the device's last call.
class SimulatedRoom {
public:
    /// Gives the device a short sweep and a stimulus that is heard.
    explicit SimulatedRoom(EndpointDouble& device);

    double noise{1e-4};                 ///< RMS, of full scale
    double microphoneGain{1};           ///< linear, before the noise
    std::set<int> dead;                 ///< speakers that play nothing
    double recordingRate{48'000};       ///< Hz, at which the microphone really records
    std::optional<double> heardFor;     ///< s of a stimulus, after which there are zeros
    std::optional<double> recordedFor;  ///< s, after which the recording ends
    bool filtersStimuli{true};          ///< a change of the mode during a stimulus has its effect
    std::optional<std::filesystem::path> musicFile;  ///< is played when it is there
    std::set<int> changed;  ///< speakers that sound different once a filter is stored
    std::function<void(double)> onRecorded;  ///< with the s recorded, in the server's thread

    static constexpr double kPeriod = 1.8;  ///< s of a sweep with its silence

private:
    using Context = EndpointDouble::Context;
    using AudioWriter = EndpointDouble::AudioWriter;

    grpc::Status record(Context* context, AudioWriter* writer);
    grpc::Status listen(Context* context, AudioWriter* writer);
    grpc::Status playStimulus(Context* context, AudioWriter* writer);
    bool send(Context* context, AudioWriter* writer, std::vector<double> heard);
    bool awaitFiltering(Context* context) const;
    std::vector<double> heardStimulus(int speaker, bool filtered) const;
    std::vector<double> heardMusic() const;
    std::vector<double> response(int speaker) const;
    std::vector<double> filter(int speaker) const;

    EndpointDouble& device_;
    calibrate::measurement::LogSweep sweep_;
    std::mt19937 random_{1};
    double recorded_{0};  // s of the recording that runs
};
