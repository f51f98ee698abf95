#pragma once

#include "calibrate/measurement/ImpulseResponse.h"

#include <optional>
#include <vector>

namespace calibrate::report {

/// How long a band of the bass takes to decay by 60 dB, as ISO 3382-2 measures it: a straight line
/// through the backward integral of the squared response, from 5 dB below its beginning on.
struct DecayTime {
    double frequency{0};         ///< Hz, the centre of a third of an octave
    std::optional<double> time;  ///< s; none: not measurable
    double nonlinearity{0};      ///< per mille by which the decay is no straight line
    int range{0};                ///< dB that the line covers: 30 (T30) or, where noise hides the
                                 ///< end of that, 20 (T20); 0: not measurable

    /// Whether the decay is straight enough to be told in one number without a word of warning.
    bool isCertain() const { return nonlinearity <= 10; }
};

/// The bands from 25 to 250 Hz; `arrival` (s) is that of the direct sound, the response usable.
///
/// A band is not measurable where
///  - less than the range and 10 dB more stands out of the noise: responses are faded out where
///    they sink into it, and the decay is taken to be true before that only;
///  - the decay is far from a straight line (nonlinearity above 50 per mille; from 10 on it is
///    uncertain);
///  - it is shorter than that of the band's filter.
std::vector<DecayTime> decayTimes(const measurement::ImpulseResponse& response, double arrival);

}  // namespace calibrate::report
