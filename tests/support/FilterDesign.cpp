#include "support/FilterDesign.h"

#include <algorithm>
#include <array>
#include <random>

namespace {

using dio::endpoint::Biquad;

constexpr unsigned kVariants = 2;
constexpr unsigned kCorrectionSection = 5;
constexpr std::array<unsigned, 3> kIirSections{0, 1, 3};
constexpr std::array<unsigned, 2> kDelayGainSections{2, 4};
constexpr int kBassControlCells = 5;
constexpr int kBassControlBiquads = 6;

/// A row of numbers without end, below 1 in magnitude.
class Numbers {
public:
    explicit Numbers(std::uint32_t seed) : engine_(seed) {}
    /// Not std::uniform_real_distribution: its numbers differ between libraries.
    float next() { return static_cast<float>(static_cast<std::int32_t>(engine_())) * 0x1p-31F; }

private:
    std::mt19937 engine_;
};

Biquad parallelBiquad(Numbers& numbers) {
    Biquad biquad;
    biquad.set_a1(numbers.next());
    biquad.set_a2(numbers.next());
    biquad.set_b0(numbers.next());
    biquad.set_b1(numbers.next());
    return biquad;
}

Biquad seriesBiquad(Numbers& numbers) {
    Biquad biquad = parallelBiquad(numbers);
    biquad.set_b2(numbers.next());
    return biquad;
}

dio::endpoint::FIIR makeFiir(const DesignSize& size, unsigned variant, Numbers& numbers) {
    dio::endpoint::FIIR fiir;
    fiir.mutable_info()->set_variant(variant);
    for (int tap = 0; tap < size.taps; ++tap)
        fiir.mutable_fir()->add_taps(numbers.next());
    for (int biquad = 0; biquad < size.biquads; ++biquad)
        *fiir.mutable_iir()->add_biquads() = parallelBiquad(numbers);
    return fiir;
}

dio::endpoint::IIR makeIir(unsigned variant, Numbers& numbers) {
    dio::endpoint::IIR iir;
    iir.mutable_info()->set_variant(variant);
    for (int biquad = 0; biquad < kBassControlBiquads; ++biquad)
        *iir.add_biquads() = seriesBiquad(numbers);
    return iir;
}

dio::endpoint::DelayGain makeDelayGain(unsigned variant, int delay, Numbers& numbers) {
    dio::endpoint::DelayGain delayGain;
    delayGain.mutable_info()->set_variant(variant);
    delayGain.set_delay(delay);
    delayGain.set_gain(numbers.next());
    return delayGain;
}

CellDesign diagonalCell(unsigned section, unsigned channel) {
    CellDesign design;
    design.cell.set_section(section);
    design.cell.set_input_channel(channel);
    design.cell.set_output_channel(channel);
    return design;
}

CellDesign correctionCell(const DesignSize& size, unsigned channel, Numbers& numbers) {
    CellDesign design = diagonalCell(kCorrectionSection, channel);
    for (unsigned variant = 0; variant < kVariants; ++variant)
        design.fiirs.push_back(makeFiir(size, variant, numbers));
    return design;
}

CellDesign iirCell(unsigned section, unsigned channel, Numbers& numbers) {
    CellDesign design = diagonalCell(section, channel);
    for (unsigned variant = 0; variant < kVariants; ++variant)
        design.iirs.push_back(makeIir(variant, numbers));
    return design;
}

CellDesign delayGainCell(unsigned section, unsigned channel, Numbers& numbers) {
    CellDesign design = diagonalCell(section, channel);
    for (unsigned variant = 0; variant < kVariants; ++variant)
        design.delayGains.push_back(makeDelayGain(variant, static_cast<int>(channel) + 1, numbers));
    return design;
}

void addBassControl(FilterDesign& design, unsigned channels, Numbers& numbers) {
    for (unsigned channel = 0; channel < channels; ++channel) {
        for (const unsigned section : kIirSections)
            design.push_back(iirCell(section, channel, numbers));
        for (const unsigned section : kDelayGainSections)
            design.push_back(delayGainCell(section, channel, numbers));
    }
}

bool isBiquad(const DiracParallelBiquad& stored, const Biquad& sent) {
    return stored.a1 == sent.a1() && stored.a2 == sent.a2() && stored.b0 == sent.b0() &&
           stored.b1 == sent.b1();
}

bool isBiquad(const DiracBiquad& stored, const Biquad& sent) {
    return stored.a1 == sent.a1() && stored.a2 == sent.a2() && stored.b0 == sent.b0() &&
           stored.b1 == sent.b1() && stored.b2 == sent.b2();
}

template <typename Stored, typename Sent>
bool areBiquads(const Stored& stored, std::uint32_t count, const Sent& sent) {
    return static_cast<int>(count) == sent.size() &&
           std::equal(sent.begin(), sent.end(), stored.begin(),
                      [](const Biquad& a, const auto& b) { return isBiquad(b, a); });
}

bool holdsFiir(const DiracChannelFilter& channel, const dio::endpoint::FIIR& fiir) {
    const auto& taps = fiir.fir().taps();
    return channel.filterEnabled == 1 && static_cast<int>(channel.tapCount) == taps.size() &&
           std::equal(taps.begin(), taps.end(), channel.taps.begin()) &&
           areBiquads(channel.biquads, channel.biquadCount, fiir.iir().biquads());
}

const DiracBassControlCell* findCell(const DiracBassControlSection& section,
                                     const dio::endpoint::CellIndex& cell) {
    const auto end = section.cells.begin() +
                     std::min<std::ptrdiff_t>(section.cellCount,
                                              static_cast<std::ptrdiff_t>(section.cells.size()));
    const auto found = std::find_if(section.cells.begin(), end, [&](const auto& stored) {
        return stored.inputIdx == cell.input_channel() && stored.outputIdx == cell.output_channel();
    });
    return found == end ? nullptr : &*found;
}

const DiracBassControlCell* findCell(const DiracConfiguration& image, std::uint32_t variant,
                                     const dio::endpoint::CellIndex& cell) {
    return findCell(image.bassControl.at(variant).at(cell.section()), cell);
}

bool holdsIir(const DiracBassControlCell* stored, const dio::endpoint::IIR& iir) {
    return stored && areBiquads(stored->biquads, stored->biquadCount, iir.biquads());
}

bool holdsDelayGain(const DiracBassControlCell* stored, const dio::endpoint::DelayGain& sent) {
    return stored && stored->delay == sent.delay() && stored->gain == sent.gain();
}

bool holdsCell(const DiracConfiguration& image, const CellDesign& design) {
    const auto& cell = design.cell;
    return std::ranges::all_of(design.fiirs,
                               [&](const auto& fiir) {
                                   const auto& group = image.groups.at(fiir.info().variant());
                                   return holdsFiir(group.at(cell.input_channel()), fiir);
                               }) &&
           std::ranges::all_of(design.iirs,
                               [&](const auto& iir) {
                                   return holdsIir(findCell(image, iir.info().variant(), cell),
                                                   iir);
                               }) &&
           std::ranges::all_of(design.delayGains, [&](const auto& sent) {
               return holdsDelayGain(findCell(image, sent.info().variant(), cell), sent);
           });
}

bool isBassControl(const CellDesign& design) {
    return design.cell.section() != kCorrectionSection;
}

}  // namespace

FilterDesign makeDesign(const DesignSize& size, std::uint32_t seed) {
    Numbers numbers(seed);
    FilterDesign design;
    for (int speaker = 0; speaker < size.speakers; ++speaker)
        design.push_back(correctionCell(size, static_cast<unsigned>(speaker), numbers));
    if (size.bassControl)
        addBassControl(design, static_cast<unsigned>(std::min(size.speakers, kBassControlCells)),
                       numbers);
    return design;
}

bool holdsDesign(const DiracConfiguration& image, const FilterDesign& design) {
    const bool expectsBassControl = std::ranges::any_of(design, isBassControl);
    return image.bypass == 0 && (image.bassControlPresent == 1) == expectsBassControl &&
           std::ranges::all_of(design,
                               [&](const CellDesign& cell) { return holdsCell(image, cell); });
}
