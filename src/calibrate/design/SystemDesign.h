#pragma once

#include "calibrate/design/Alignment.h"
#include "calibrate/design/BassManagement.h"
#include "calibrate/design/CorrectionCurve.h"
#include "calibrate/design/ParallelFilter.h"
#include "calibrate/measurement/Arrival.h"
#include "calibrate/measurement/ImpulseResponse.h"
#include "calibrate/measurement/PowerSpectrum.h"

#include <optional>
#include <string>
#include <vector>

namespace calibrate::design {

/// A loudspeaker as it was measured.
struct MeasuredSpeaker {
    std::string name;
    bool subwoofer{false};
    unsigned group{0};
    /// One response for each position, all at one sample rate; the first leads in time and shares
    /// its origin with the other speakers' first ones.
    std::vector<measurement::ImpulseResponse> positions;
};

struct SystemOptions {
    CorrectionOptions correction;
    std::vector<FilterCapacity> capacities{{48'000, 1'000, 30}, {44'100, 1'000, 30}};
    AlignmentCapacity alignmentCapacity;
    BassCapacity bassCapacity;
    bool align{true};
    double crossover{80};  ///< Hz, where there is a subwoofer; 0 for no bass management
};

/// A corrected loudspeaker.
struct SpeakerCorrection {
    std::string name;
    bool subwoofer{false};
    CorrectionCurve curve;
    std::vector<ParallelFilter> filters;  ///< one for each capacity
    measurement::Arrival arrival;         ///< at the first position, uncorrected
    Alignment alignment;
    measurement::PowerSpectrum before;  ///< mean of the positions
    /// The same, as predicted for the first capacity; a main speaker with bass management at the
    /// first position, together with the subwoofer.
    measurement::PowerSpectrum after;
    double deviationBefore{0};  ///< dB, see Deviation
    double deviationAfter{0};
    double lowest{30};  ///< Hz, the band of these deviations
    double highest{16'000};
    /// Predicted at the first position, with alignment; for a main speaker with bass management
    /// together with the subwoofer, for a subwoofer by itself without the crossover.
    measurement::ImpulseResponse predicted;
};

struct SystemDesign {
    std::vector<SpeakerCorrection> speakers;  ///< in the order given
    double attenuation{0};  ///< dB by which all filters were lowered to keep the headroom, <= 0

    struct Bass {
        BassManagement management;
        std::vector<std::vector<BassCell>> cells;  ///< for each capacity's sample rate
        std::vector<double> deviations;            ///< dB, of each main speaker with the subwoofer
    };
    std::optional<Bass> bass;
    std::vector<std::string> warnings;
};

/// Designs everything that a device gets. Throws BadInput when the options, the capacities or the
/// responses do not allow it.
SystemDesign designSystem(const std::vector<MeasuredSpeaker>& speakers,
                          const SystemOptions& options);

}  // namespace calibrate::design
