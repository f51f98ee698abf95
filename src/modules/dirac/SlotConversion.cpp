#include "modules/dirac/SlotConversion.h"

#include "modules/dirac/Truncation.h"

#include <QVariantList>

#include <array>
#include <cstdint>

namespace {

/// What does not fit, if anything.
using Excess = std::optional<std::string>;

/// Converts the first `count` elements of `list` into the first of `places`. `name` is one
/// element's name. `convert(variant, place)` returns the excess inside its element, or nothing at
/// all.
template <typename Place, std::size_t Capacity, typename Convert>
Excess convertEach(const char* name, const QVariantList& list, int count,
                   std::array<Place, Capacity>& places, const Convert& convert) {
    if (count < 0 || static_cast<std::size_t>(count) > Capacity) {
        return std::to_string(count) + " " + name + "s, the image holds 0 to " +
               std::to_string(Capacity);
    }
    for (int i = 0; i < count; ++i) {
        Place& place = places[static_cast<std::size_t>(i)];
        if constexpr (std::is_void_v<decltype(convert(list.at(i), place))>)
            convert(list.at(i), place);
        else if (const Excess excess = convert(list.at(i), place))
            return std::string(name) + " " + std::to_string(i) + ": " + *excess;
    }
    return std::nullopt;
}

void convertTap(const QVariant& tap, float& place) {
    place = static_cast<float>(tap.toDouble());
}

void convertParallelBiquad(const QVariant& variant, DiracParallelBiquad& place) {
    const VeskDiracPiirBiquad biquad(variant);
    place.a1 = static_cast<float>(biquad.a1());
    place.a2 = static_cast<float>(biquad.a2());
    place.b0 = static_cast<float>(biquad.b0());
    place.b1 = static_cast<float>(biquad.b1());
}

void convertBiquad(const QVariant& variant, DiracBiquad& place) {
    const VeskDiracIirBiquad biquad(variant);
    place.a1 = static_cast<float>(biquad.a1());
    place.a2 = static_cast<float>(biquad.a2());
    place.b0 = static_cast<float>(biquad.b0());
    place.b1 = static_cast<float>(biquad.b1());
    place.b2 = static_cast<float>(biquad.b2());
}

Excess convertFilter(const VeskDiracFiirParams& fiir, DiracChannelFilter& place) {
    if (auto excess = convertEach("biquad", fiir.biquads(), fiir.biquadSize(), place.biquads,
                                  convertParallelBiquad))
        return excess;
    if (auto excess = convertEach("tap", fiir.taps(), fiir.tapSize(), place.taps, convertTap))
        return excess;
    place.filterEnabled = fiir.enabled() ? 1 : 0;
    place.tapCount = static_cast<std::uint32_t>(fiir.tapSize());
    place.biquadCount = static_cast<std::uint32_t>(fiir.biquadSize());
    return std::nullopt;
}

Excess convertChannel(const QVariant& variant, DiracChannelFilter& place) {
    const VeskDiracChannelParams channel(variant);
    if (auto excess = convertFilter(channel.fiir(), place))
        return excess;
    const VeskDiracLinearParams linear = channel.linear();
    place.linearEnabled = linear.enabled() ? 1 : 0;
    place.delay = static_cast<float>(linear.delay());
    place.gain = static_cast<float>(linear.gain());
    return std::nullopt;
}

Excess convertGroup(const QVariant& variant, DiracChannelGroup& place) {
    const QVariantList channels = variant.toList();
    return convertEach("channel", channels, channels.size(), place, convertChannel);
}

void convertIndices(const VeskDiracBcCells& cell, DiracBassControlCell& place) {
    place.cellIdx = static_cast<std::uint32_t>(cell.cellIdx());
    place.inputIdx = static_cast<std::uint32_t>(cell.inputIdx());
    place.outputIdx = static_cast<std::uint32_t>(cell.outputIdx());
}

Excess convertIirCell(const QVariant& variant, DiracBassControlCell& place) {
    const VeskDiracBcCells cell(variant);
    convertIndices(cell, place);
    if (auto excess =
            convertEach("biquad", cell.iirs(), cell.numIirs(), place.biquads, convertBiquad))
        return excess;
    place.biquadCount = static_cast<std::uint32_t>(cell.numIirs());
    return std::nullopt;
}

void convertDelayGainCell(const QVariant& variant, DiracBassControlCell& place) {
    const VeskDiracBcCells cell(variant);
    convertIndices(cell, place);
    place.gain = static_cast<float>(cell.gain());
    place.delay = truncated(cell.delay());
}

Excess convertCells(const VeskDiracBcParams& section, DiracBassControlSection& place) {
    if (section.type() == 0)
        return convertEach("cell", section.cells(), section.numCells(), place.cells,
                           convertIirCell);
    return convertEach("cell", section.cells(), section.numCells(), place.cells,
                       convertDelayGainCell);
}

Excess convertSection(const QVariant& variant, DiracBassControlSection& place) {
    const VeskDiracBcParams section(variant);
    if (auto excess = convertCells(section, place))
        return excess;
    place.sectionIdx = static_cast<std::uint32_t>(section.sectionIdx());
    place.type = static_cast<std::uint32_t>(section.type());
    place.cellCount = static_cast<std::uint32_t>(section.numCells());
    return std::nullopt;
}

Excess convertBlock(const QVariant& variant, DiracBassControlBlock& place) {
    const QVariantList sections = variant.toList();
    return convertEach("section", sections, sections.size(), place, convertSection);
}

}  // namespace

std::optional<std::string> convertSlot(const VeskDiracSlot& slot,
                                       DiracConfiguration& configuration) {
    const QVariantList blocks = slot.bcParams();
    if (!blocks.isEmpty())
        configuration.bassControlPresent = 1;
    if (auto excess = convertEach("bass-control block", blocks, blocks.size(),
                                  configuration.bassControl, convertBlock))
        return excess;
    const QVariantList groups = slot.params();
    return convertEach("group", groups, groups.size(), configuration.groups, convertGroup);
}
