#pragma once

#include "calibrate/Console.h"
#include "calibrate/CorrectionArguments.h"
#include "calibrate/EndpointClient.h"
#include "calibrate/Microphone.h"

#include <CLI/App.hpp>

#include <filesystem>
#include <optional>
#include <string>

namespace calibrate {

struct RunOptions {
    std::optional<std::filesystem::path> folder;  ///< of the report; none: named after the time
    std::size_t positions{1};                     ///< of the microphone
    bool confirmed{false};                        ///< no question is asked
    double pause{0};                              ///< s to move the microphone, without a question
    std::optional<int> slot;                      ///< none: the first that is empty
    bool force{false};                            ///< a slot's filter may be replaced
    std::optional<std::string> name;              ///< of the filter; none: made from the time
    std::string description;                      ///< of the filter; empty: made from the options
    MicrophoneChoice microphone;
    std::optional<std::filesystem::path> calibrationFile;  ///< of that microphone
    std::optional<double> gain;                            ///< dB, of the stimuli; none: found
    CorrectionArguments correction;
    bool verify{true};
    /// Has the device play the sound file $FILE, for the verification; none: stimuli are played.
    std::optional<std::string> playCommand;
    std::string address;  ///< of the device, for the report
};

/// Adds the verb's arguments to its part of the command line.
void addRunOptions(CLI::App& command, RunOptions& options);

/// Calibrates a room: measures all speakers, designs a filter for each, stores them in a slot, puts
/// it to use, measures the result and writes a report. However it ends before that, the device is
/// as it was.
void calibrateRoom(EndpointClient& client, const RunOptions& given, const Console& console);

}  // namespace calibrate
