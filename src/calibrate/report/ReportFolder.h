#pragma once

#include "calibrate/report/Calibration.h"

#include <filesystem>

namespace calibrate::report {

/// Throws BadInput when write() could not make its folder there: something else has the name, the
/// folder holds files already, or the folder above it is missing or closed. For an answer before
/// anything is measured. Makes nothing.
void checkFolder(const std::filesystem::path& directory);

/// Writes the whole report into a new or empty folder: the page, JSON, recordings, impulse
/// responses, responses and filters; docs/report.md lists them. The folder comes into being
/// complete, or not at all: everything is written beside it first, under a name that begins with a
/// dot.
///
/// Throws BadInput like checkFolder(), OutputError when the disk is full or fails, and
/// std::invalid_argument when the design has other speakers than the calibration.
void write(const Calibration& calibration, const std::filesystem::path& directory);

}  // namespace calibrate::report
