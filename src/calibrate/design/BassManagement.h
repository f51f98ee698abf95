#pragma once

#include "calibrate/design/Alignment.h"
#include "calibrate/measurement/ImpulseResponse.h"

#include <complex>
#include <cstddef>
#include <vector>

namespace calibrate::design {

/// (b0 + b1 z⁻¹ + b2 z⁻²) / (1 + a1 z⁻¹ + a2 z⁻²), in series.
struct Biquad {
    float a1{0};
    float a2{0};
    float b0{1};
    float b1{0};
    float b2{0};

    std::complex<double> response(double frequency, double sampleRate) const;
};

enum class Pass { low, high };

/// A Linkwitz-Riley filter of the fourth order: two equal Butterworth biquads. Both halves are
/// -6 dB at `frequency` (Hz), in phase there, and add up to an all-pass.
std::vector<Biquad> linkwitzRiley(Pass pass, double frequency, double sampleRate);

/// The sections of a device's bass control, from 0.
inline constexpr unsigned kBassSections = 5;

/// Whether a cell of this section has a delay and a gain; those of the others have biquads.
constexpr bool holdsDelay(unsigned section) {
    return section == 2 || section == 4;
}

/// One cell of a device's bass-control matrix; it maps an input of its section to an output.
struct BassCell {
    unsigned section{0};
    unsigned input{0};
    unsigned output{0};
    std::vector<Biquad> biquads;  ///< sections 0, 1 and 3; none lets everything pass
    int delay{0};                 ///< samples, sections 2 and 4
    double gain{0};               ///< dB, sections 2 and 4
};

/// Which of a device's speakers are subwoofers (kind 4), and to which group the others belong.
struct SpeakerLayout {
    struct Speaker {
        bool subwoofer{false};
        unsigned group{0};
    };
    std::vector<Speaker> speakers;  ///< in the device's order
};

/// How the bass sections are set up, the same at every sample rate.
struct BassManagement {
    double crossover{80};               ///< Hz
    std::vector<Alignment> alignments;  ///< by speaker, in the device's order
    bool inverted{false};               ///< the subwoofers' correction filters are to be inverted
    double missingGain{0};              ///< dB, >= 0, for which the device's gain is too small

    static constexpr double kLowestCrossover = 40;
    static constexpr double kHighestCrossover = 250;
};

/// What a device's bass-control sections hold.
struct BassCapacity {
    std::size_t maxBiquads{6};  ///< in a cell
    std::size_t maxCells{5};    ///< in a section
    int maxDelay{150};          ///< samples
};

/// The cells at one sample rate:
/// section 0 mixes each group's speakers into a bass channel and lets them pass themselves,
/// section 1 holds the crossover's filters, section 2 leads the bass channels and the bass input to
/// the subwoofers, section 4 has every speaker's delay and gain; what exceeds its delay is in
/// section 2. Section 3 stays empty and lets everything pass.
///
/// Throws BadInput when there is no subwoofer or nothing to relieve, or the device is too small.
std::vector<BassCell> bassCells(const SpeakerLayout& layout, const BassManagement& bass,
                                const BassCapacity& capacity, double sampleRate);

/// The subwoofer's delay, level and polarity with which the main speakers and it add up best around
/// the crossover. All responses are corrected already, at one place, with one origin of time and
/// one sample rate; `mains` not empty. Alignments: first the mains', then the subwoofer's; the
/// mains' own alignment is in their responses, and has left them `mainGainLeft` (dB, >= 0) of the
/// device's.
BassManagement alignBass(const std::vector<measurement::ImpulseResponse>& mains,
                         const measurement::ImpulseResponse& subwoofer, double crossover,
                         const AlignmentCapacity& capacity, double mainGainLeft);

/// A main speaker and the subwoofer together, as a bass-managed signal for that speaker sounds.
measurement::ImpulseResponse crossedOver(const measurement::ImpulseResponse& main,
                                         const measurement::ImpulseResponse& subwoofer,
                                         const BassManagement& bass, const Alignment& mainAlignment,
                                         const Alignment& subwooferAlignment);

}  // namespace calibrate::design
