#include "calibrate/MicrophoneArguments.h"

#include "calibrate/Between.h"

#include <CLI/CLI.hpp>

namespace calibrate {

void addMicrophoneOptions(CLI::App& command, MicrophoneChoice& choice) {
    command
        .add_option("--mic", choice.name,
                    "The device's microphone, from 0, or an ALSA name of this machine; default: 0")
        ->type_name("N|DEVICE");
    command
        .add_option("--mic-channel", choice.channel,
                    "Channel of this machine's, from 0; default: 0")
        ->type_name("N")
        ->check(between(0, 255));
}

}  // namespace calibrate
