#pragma once

#include "calibrate/measurement/Deconvolution.h"
#include "calibrate/measurement/LogSweep.h"

#include <span>
#include <vector>

namespace calibrate::run {

/// One loudspeaker's part of a recording in which several played the same sweep in turn.
struct SeparatedSweep {
    std::vector<double> samples;               ///< from a little before its sweep arrives
    measurement::Deconvolution deconvolution;  ///< of these samples
    double origin{0};  ///< s to add to its times: then all parts have one origin of time
};

struct SeparatedSweeps {
    std::vector<SeparatedSweep> parts;  ///< in the order in which they were played
    double arrival{0};                  ///< s into the recording until the first sweep is heard
    double driftPpm{0};                 ///< of the microphone's clock, taken out of the parts
};

/// Cuts a recording into the sweeps that it holds, one after the other without a pause besides
/// each sweep's own silence. Where they begin is found from the loudest of them, because a
/// loudspeaker may be dead; the first one begins before a sweep's whole period is over. The common
/// origin is the recording's start, taken back by a period for each further part.
///
/// With `closing` the last sweep is the first loudspeaker's once more. Sweeps alone tell the
/// clock's drift to a few parts per million, which adds up over a row of them; the time between two
/// of the same loudspeaker tells it exactly. `sampleRate` in Hz; the recording is at least as long
/// as the sweeps.
SeparatedSweeps separateSweeps(std::span<const double> recording, double sampleRate,
                               const measurement::LogSweep& sweep, std::size_t count,
                               bool closing = false);

}  // namespace calibrate::run
