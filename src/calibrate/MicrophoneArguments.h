#pragma once

#include "calibrate/Microphone.h"

#include <CLI/App.hpp>

namespace calibrate {

/// Adds the arguments that choose a microphone to a verb's part of the command line.
void addMicrophoneOptions(CLI::App& command, MicrophoneChoice& choice);

}  // namespace calibrate
