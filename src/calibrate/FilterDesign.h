#pragma once

#include "calibrate/SpeakerMapping.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace calibrate {

/// A variant of the filter that the device holds for each speaker: one for each sample rate.
struct Variant {
    std::uint32_t id{0};
    double sampleRate{0};    ///< Hz
    std::size_t maxTaps{0};  ///< for one speaker
};

/// What is transferred for one variant.
struct VariantDesign {
    Variant variant;
    std::vector<std::vector<float>> taps;  ///< by speaker, in the device's order

    /// How the filters that no file holds at this rate were made.
    struct Conversion {
        std::vector<double> fromRates;  ///< Hz, ascending
        std::size_t delay{0};           ///< samples, the same for every speaker of the variant
        double deviation{0};            ///< dB, largest up to bandEdge
        double bandEdge{0};             ///< Hz
        double lostEnergy{0};           ///< 0 to 1, largest of all speakers
    };
    std::optional<Conversion> conversion;  ///< none: every filter is as a file holds it
};

/// A complete design, and what the user should know about it.
struct FilterDesign {
    std::vector<VariantDesign> variants;
    std::vector<std::string> warnings;
};

/// Throws BadInput when a file at the rate of a variant has more taps than that variant holds.
/// Taps of 0 at the end do not count.
void checkCapacity(const FilterFile& file, const std::vector<Variant>& variants);

/// Makes the filters of every variant for every speaker. A filter at a variant's rate is taken as
/// it is; others are resampled from the filter with the highest rate. A speaker without any filter
/// gets a unit impulse, which changes nothing but, with a delayed variant, its delay.
///
/// Throws BadInput when a filter cannot be resampled well: its rate is too low for a variant, or
/// more than 1 % of its energy lies beyond the last tap that fits.
FilterDesign designFilters(const std::vector<SpeakerFilters>& speakers,
                           const std::vector<std::string>& speakerNames,
                           const std::vector<Variant>& variants);

}  // namespace calibrate
