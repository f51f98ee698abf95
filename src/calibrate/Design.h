#pragma once

#include "calibrate/Console.h"
#include "calibrate/CorrectionArguments.h"

#include <CLI/App.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace calibrate {

struct DesignOptions {
    std::vector<std::filesystem::path> files;  ///< impulse responses, a channel for each speaker
    std::filesystem::path folder;              ///< where the result goes
    std::size_t positions{1};                  ///< of the microphone
    std::vector<std::string> names;            ///< of the speakers; none: the files'
    std::vector<std::size_t> subwoofers;       ///< indices of speakers
    std::optional<std::filesystem::path> microphone;  ///< calibration file
    std::vector<double> rates{48'000, 44'100};        ///< Hz
    std::size_t taps{1'000};
    std::size_t sections{30};
    CorrectionArguments correction;
};

/// Adds the verb's arguments to its part of the command line.
void addDesignOptions(CLI::App& command, DesignOptions& options);

/// Designs correction filters for impulse responses in files, without a device, and writes them.
void designFromFiles(const DesignOptions& options, const Console& console);

}  // namespace calibrate
