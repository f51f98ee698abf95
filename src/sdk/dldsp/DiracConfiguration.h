#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

// The image that the DSP reads: little-endian, fixed size, copied whole. This is the only place
// where its layout is written down.
//
// A value-initialised record is the default image: every channel passes its signal unchanged (a
// unit impulse), no sub-sampler data, bypass on.

/// Capacities of the image.
struct DiracLimits {
    static constexpr std::size_t speakers = 10;
    static constexpr std::size_t groups = 2;  ///< variant 0: 48 kHz, variant 1: 44.1 kHz
    static constexpr std::size_t channels = 10;
    static constexpr std::size_t taps = 1024;
    static constexpr std::size_t biquads = 30;
    static constexpr std::size_t rates = 4;
    static constexpr std::size_t subSamplerBytes = 4096;
    static constexpr std::size_t bassControlBlocks = 2;
    static constexpr std::size_t bassControlSections = 5;
    static constexpr std::size_t bassControlCells = 5;
    static constexpr std::size_t bassControlBiquads = 30;
};

/// Sample rates with precalculated sub-sampler data, Hz, in the order of the image.
inline constexpr std::array<std::uint32_t, DiracLimits::rates> kDiracSubSamplerRates{
    88200, 96000, 176400, 192000};

/// One loudspeaker.
struct DiracSpeaker {
    std::uint32_t type{0};
    std::uint32_t groupId{0};
};

/// A parallel second-order section: (b0 + b1 z^-1) / (1 + a1 z^-1 + a2 z^-2).
struct DiracParallelBiquad {
    float a1{0};
    float a2{0};
    float b0{0};
    float b1{0};
};

/// A second-order section in series.
struct DiracBiquad {
    float a1{0};
    float a2{0};
    float b0{0};
    float b1{0};
    float b2{0};
};

/// The filter of one channel: FIR taps with parallel second-order sections, then delay and gain.
struct DiracChannelFilter {
    static constexpr std::array<float, DiracLimits::taps> unitImpulse() {
        std::array<float, DiracLimits::taps> taps{};
        taps[0] = 1.0F;
        return taps;
    }

    std::uint32_t filterEnabled{0};  ///< 0 or 1
    std::uint32_t tapCount{1};
    std::uint32_t biquadCount{0};
    std::array<float, DiracLimits::taps> taps{unitImpulse()};
    std::array<DiracParallelBiquad, DiracLimits::biquads> biquads{};
    std::uint32_t linearEnabled{0};  ///< 0 or 1
    float delay{0};                  ///< ms
    float gain{1.0F};                ///< dB when enabled
};

/// One cell of a bass-control section.
struct DiracBassControlCell {
    std::uint32_t cellIdx{0};
    std::uint32_t inputIdx{0};
    std::uint32_t outputIdx{0};
    std::array<DiracBiquad, DiracLimits::bassControlBiquads> biquads{};  ///< section type 0
    std::uint32_t biquadCount{0};                                        ///< section type 0
    std::int32_t delay{0};                                               ///< samples, other types
    float gain{0};                                                       ///< dB, other types
};

struct DiracBassControlSection {
    std::uint32_t sectionIdx{0};
    std::uint32_t type{0};  ///< 0: IIR, 1: delay and gain
    std::uint32_t cellCount{0};
    std::array<DiracBassControlCell, DiracLimits::bassControlCells> cells{};
};

using DiracChannelGroup = std::array<DiracChannelFilter, DiracLimits::channels>;
using DiracBassControlBlock = std::array<DiracBassControlSection, DiracLimits::bassControlSections>;
using DiracSubSamplerBlock = std::array<char, DiracLimits::subSamplerBytes>;

/// The image itself.
struct DiracConfiguration {
    std::int64_t timeStamp{0};  ///< ms since the Unix epoch, taken anew for each image
    std::uint32_t speakerCount{0};
    std::array<DiracSpeaker, DiracLimits::speakers> speakers{};
    std::array<DiracChannelGroup, DiracLimits::groups> groups{};
    std::array<std::uint32_t, DiracLimits::rates> sampleRates{kDiracSubSamplerRates};
    std::array<std::uint32_t, DiracLimits::rates> subSamplerSizes{};  ///< bytes, 0: none
    std::array<DiracSubSamplerBlock, DiracLimits::rates> subSamplerData{};
    std::array<DiracBassControlBlock, DiracLimits::bassControlBlocks> bassControl{};
    std::uint32_t bassControlPresent{0};  ///< 0 or 1
    std::uint32_t reserved{0};
    std::uint8_t bypass{1};  ///< 1: no filter applies
    std::array<std::uint8_t, 3> padding{};
};

/// The shared-memory segment: the image behind a magic number.
struct DiracSegment {
    static constexpr int kKey = 1234;  ///< System V key of the segment and of its lock
    static constexpr std::uint32_t kMagic = 0x83474453;

    std::uint32_t magic{kMagic};
    std::uint32_t reserved{0};
    DiracConfiguration configuration{};
};

static_assert(std::is_trivially_copyable_v<DiracSegment>);
static_assert(std::is_standard_layout_v<DiracSegment>);

static_assert(offsetof(DiracSpeaker, type) == 0);
static_assert(offsetof(DiracSpeaker, groupId) == 4);
static_assert(sizeof(DiracSpeaker) == 8);

static_assert(offsetof(DiracParallelBiquad, a1) == 0);
static_assert(offsetof(DiracParallelBiquad, a2) == 4);
static_assert(offsetof(DiracParallelBiquad, b0) == 8);
static_assert(offsetof(DiracParallelBiquad, b1) == 12);
static_assert(sizeof(DiracParallelBiquad) == 16);

static_assert(offsetof(DiracBiquad, a1) == 0);
static_assert(offsetof(DiracBiquad, a2) == 4);
static_assert(offsetof(DiracBiquad, b0) == 8);
static_assert(offsetof(DiracBiquad, b1) == 12);
static_assert(offsetof(DiracBiquad, b2) == 16);
static_assert(sizeof(DiracBiquad) == 20);

static_assert(offsetof(DiracChannelFilter, filterEnabled) == 0);
static_assert(offsetof(DiracChannelFilter, tapCount) == 4);
static_assert(offsetof(DiracChannelFilter, biquadCount) == 8);
static_assert(offsetof(DiracChannelFilter, taps) == 12);
static_assert(offsetof(DiracChannelFilter, biquads) == 4108);
static_assert(offsetof(DiracChannelFilter, linearEnabled) == 4588);
static_assert(offsetof(DiracChannelFilter, delay) == 4592);
static_assert(offsetof(DiracChannelFilter, gain) == 4596);
static_assert(sizeof(DiracChannelFilter) == 4600);
static_assert(sizeof(DiracChannelGroup) == 46000);

static_assert(offsetof(DiracBassControlCell, cellIdx) == 0);
static_assert(offsetof(DiracBassControlCell, inputIdx) == 4);
static_assert(offsetof(DiracBassControlCell, outputIdx) == 8);
static_assert(offsetof(DiracBassControlCell, biquads) == 12);
static_assert(offsetof(DiracBassControlCell, biquadCount) == 612);
static_assert(offsetof(DiracBassControlCell, delay) == 616);
static_assert(offsetof(DiracBassControlCell, gain) == 620);
static_assert(sizeof(DiracBassControlCell) == 624);

static_assert(offsetof(DiracBassControlSection, sectionIdx) == 0);
static_assert(offsetof(DiracBassControlSection, type) == 4);
static_assert(offsetof(DiracBassControlSection, cellCount) == 8);
static_assert(offsetof(DiracBassControlSection, cells) == 12);
static_assert(sizeof(DiracBassControlSection) == 3132);
static_assert(sizeof(DiracBassControlBlock) == 15660);

static_assert(offsetof(DiracConfiguration, timeStamp) == 0);
static_assert(offsetof(DiracConfiguration, speakerCount) == 8);
static_assert(offsetof(DiracConfiguration, speakers) == 12);
static_assert(offsetof(DiracConfiguration, groups) == 92);
static_assert(offsetof(DiracConfiguration, sampleRates) == 92092);
static_assert(offsetof(DiracConfiguration, subSamplerSizes) == 92108);
static_assert(offsetof(DiracConfiguration, subSamplerData) == 92124);
static_assert(offsetof(DiracConfiguration, bassControl) == 108508);
static_assert(offsetof(DiracConfiguration, bassControlPresent) == 139828);
static_assert(offsetof(DiracConfiguration, reserved) == 139832);
static_assert(offsetof(DiracConfiguration, bypass) == 139836);
static_assert(offsetof(DiracConfiguration, padding) == 139837);
static_assert(sizeof(DiracSubSamplerBlock) == 4096);
static_assert(sizeof(DiracConfiguration) == 139840);

static_assert(offsetof(DiracSegment, magic) == 0);
static_assert(offsetof(DiracSegment, reserved) == 4);
static_assert(offsetof(DiracSegment, configuration) == 8);
static_assert(sizeof(DiracSegment) == 139848);
