#pragma once

#include "calibrate/design/SystemDesign.h"

#include <string>

namespace calibrate::design {

/// A speaker of a design that has not been measured and has no filters yet.
inline SpeakerCorrection uncorrectedSpeaker(const std::string& name) {
    const std::vector<double> impulse{1, 0, 0, 0};
    const measurement::PowerSpectrum flat(impulse, 48'000);
    const LogGrid grid(20, 20'000, 1);
    return {name,
            false,
            {grid, std::vector<double>(grid.size()), 20, 20'000},
            {},
            {},
            {},
            flat,
            flat,
            0,
            0,
            30,
            16'000,
            {48'000, impulse, 0}};
}

}  // namespace calibrate::design
