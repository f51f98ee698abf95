#pragma once

#include "calibrate/measurement/Deconvolution.h"

#include <limits>
#include <string>
#include <vector>

namespace calibrate::measurement {

/// What a loudspeaker plays; beyond it there may be nothing but noise.
struct PlayedRange {
    double lowest{0};  ///< Hz
    double highest{std::numeric_limits<double>::infinity()};

    /// Whether the whole octave around a frequency (Hz) is played.
    bool holdsOctave(double middle) const;
};

/// A speaker's sweep as the microphone heard it.
struct Recording {
    std::string speaker;          ///< name, for the texts
    double sampleRate{0};         ///< Hz
    std::vector<double> silence;  ///< before the sweep; may be empty
    std::vector<double> samples;  ///< from the sweep's start or before; not empty
    PlayedRange range{};          ///< of the speaker
};

enum class Verdict {
    good,
    poor,     ///< usable; better to know
    unusable  ///< the measurement must be made again
};

/// One thing that was looked at.
struct Check {
    enum class Subject { signal, clipping, noise, sweep, completeness, continuity, bandNoise };

    Subject subject{Subject::signal};
    Verdict verdict{Verdict::good};
    double value{0};   ///< the subject's figure: samples, dB, s; the text tells the unit
    std::string text;  ///< for a person: what was found and, unless it is good, what to do
};

/// Name of a subject for programs: "clipping".
std::string subjectName(Check::Subject subject);
/// "good", "poor" or "unusable".
std::string verdictName(Verdict verdict);

struct RecordingChecks {
    std::vector<Check> checks;  ///< up to and including the first that is unusable

    Verdict worst() const;
    /// The text of the worst check, of the first where several are as bad.
    const std::string& summary() const;
};

/// Looks at a recording and at what deconvolve() made of it, from the coarsest fault to the finest:
/// no signal, clipping, a loud room, something else than the sweep (nothing, another sample rate),
/// a sweep cut short, lost samples, too little signal in single octaves. The last two look at the
/// octaves of the speaker's range only, and are left out where there is none to look at.
RecordingChecks checkRecording(const Recording& recording, const LogSweep& sweep,
                               const Deconvolution& deconvolution);

}  // namespace calibrate::measurement
