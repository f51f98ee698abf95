#pragma once

#include "calibrate/design/SystemDesign.h"

#include <CLI/App.hpp>

#include <string>

namespace calibrate {

/// What a person may say about a correction, whatever it is designed for.
struct CorrectionArguments {
    std::string target{"flat"};      ///< name or file
    std::string range{"20..18000"};  ///< Hz
    bool keepAlignment{false};
    design::SystemOptions system;  ///< the limits and the crossover are given; see systemOptions()
};

/// Adds the arguments to a verb's part of the command line.
void addCorrectionOptions(CLI::App& command, CorrectionArguments& arguments);

/// `arguments.system` with what the texts mean. Throws BadInput when they mean nothing, the limits
/// contradict themselves or the target cannot be read.
design::SystemOptions systemOptions(const CorrectionArguments& arguments);

}  // namespace calibrate
