#include "modules/dirac/common/FilterManagerRecords.h"

namespace processing {

namespace {

using dio::endpoint::Biquad;

/// The list of what `convert` makes of each of `items`.
template <typename Items, typename Convert>
QVariantList listOf(const Items& items, const Convert& convert) {
    QVariantList list;
    list.reserve(static_cast<int>(items.size()));
    for (const auto& item : items)
        list.append(QVariant(convert(item)));
    return list;
}

QVariant toTap(float tap) {
    return static_cast<double>(tap);
}

QVariant toParallelBiquad(const Biquad& biquad) {
    VeskDiracPiirBiquad record;
    record.setA1(biquad.a1());
    record.setA2(biquad.a2());
    record.setB0(biquad.b0());
    record.setB1(biquad.b1());
    return record;
}

QVariant toBiquad(const Biquad& biquad) {
    VeskDiracIirBiquad record;
    record.setB0(biquad.b0());
    record.setB1(biquad.b1());
    record.setB2(biquad.b2());
    record.setA1(biquad.a1());
    record.setA2(biquad.a2());
    return record;
}

VeskDiracFiirParams fiirParams(const std::vector<float>& taps, const std::vector<Biquad>& biquads) {
    const bool isEnabled = !taps.empty() || !biquads.empty();
    VeskDiracFiirParams record;
    record.setEnabled(isEnabled);
    record.setTapSize(static_cast<int>(taps.size()));
    record.setBiquadSize(static_cast<int>(biquads.size()));
    if (isEnabled) {
        record.setTaps(listOf(taps, toTap));
        record.setBiquads(listOf(biquads, toParallelBiquad));
    }
    return record;
}

VeskDiracLinearParams linearParams(float delay, float gain) {
    const bool isEnabled = delay != 0.0F && gain != 0.0F;
    VeskDiracLinearParams record;
    record.setEnabled(isEnabled);
    if (isEnabled) {
        record.setDelay(delay);
        record.setGain(gain);
    }
    return record;
}

VeskDiracChannelParams channelRecord(const FilterCoefficients& filter, int cell) {
    VeskDiracChannelParams record;
    record.setFiir(fiirParams(filter.getFirTapsForCell(cell), filter.getBiquadsForCell(cell)));
    record.setLinear(linearParams(filter.getDelayForCell(cell), filter.getGainForCell(cell)));
    return record;
}

QVariantList variantRecord(const FilterCoefficients& filter) {
    const int cells = static_cast<int>(filter.size());
    QVariantList list;
    list.reserve(cells);
    for (int cell = 0; cell < cells; ++cell)
        list.append(channelRecord(filter, cell));
    return list;
}

void setCellAddress(VeskDiracBcCells& record, const CellIndex& cell) {
    record.setInputIdx(static_cast<int>(cell.inputIdx));
    record.setOutputIdx(static_cast<int>(cell.outputIdx));
}

VeskDiracBcCells iirCell(const BassControlFilterCoefficients& filter, const CellIndex& cell,
                         int cellIdx) {
    const std::vector<Biquad> biquads = filter.getBiquadsForCell(cell);
    VeskDiracBcCells record;
    record.setCellIdx(cellIdx);
    setCellAddress(record, cell);
    record.setIirs(listOf(biquads, toBiquad));
    record.setNumIirs(static_cast<int>(biquads.size()));
    return record;
}

VeskDiracBcCells delayGainCell(const BassControlFilterCoefficients& filter, const CellIndex& cell) {
    VeskDiracBcCells record;
    record.setCellIdx(0);
    setCellAddress(record, cell);
    record.setDelay(filter.getDelayForCell(cell));
    record.setGain(filter.getGainForCell(cell));
    return record;
}

VeskDiracBcParams sectionRecord(const BassControlFilterCoefficients& filter, int section,
                                const std::vector<CellIndex>& cells) {
    const bool isDelayGain = isDelayGainSection(static_cast<std::size_t>(section));
    QVariantList records;
    for (const CellIndex& cell : cells) {
        records.append(isDelayGain ? delayGainCell(filter, cell)
                                   : iirCell(filter, cell, records.size()));
    }
    VeskDiracBcParams record;
    record.setSectionIdx(section);
    record.setType(isDelayGain ? 1 : 0);
    record.setNumCells(records.size());
    record.setCells(records);
    return record;
}

QVariantList bassControlRecord(const BassControlFilterCoefficients& filter) {
    const std::vector<std::vector<CellIndex>> sections = filter.getCellIndices();
    Q_ASSERT(sections.size() == 5);
    QVariantList list;
    for (const std::vector<CellIndex>& cells : sections)
        list.append(sectionRecord(filter, list.size(), cells));
    return list;
}

std::vector<float> tapsOf(const VeskDiracFiirParams& fiir) {
    const QVariantList list = fiir.taps();
    std::vector<float> taps;
    taps.reserve(static_cast<std::size_t>(list.size()));
    for (const QVariant& tap : list)
        taps.push_back(static_cast<float>(tap.toDouble()));
    return taps;
}

Biquad biquadOf(const VeskDiracPiirBiquad& record) {
    Biquad biquad;
    biquad.set_a1(static_cast<float>(record.a1()));
    biquad.set_a2(static_cast<float>(record.a2()));
    biquad.set_b0(static_cast<float>(record.b0()));
    biquad.set_b1(static_cast<float>(record.b1()));
    return biquad;
}

std::vector<Biquad> biquadsOf(const VeskDiracFiirParams& fiir) {
    const QVariantList list = fiir.biquads();
    std::vector<Biquad> biquads;
    biquads.reserve(static_cast<std::size_t>(list.size()));
    for (const QVariant& record : list)
        biquads.push_back(biquadOf(VeskDiracPiirBiquad(record)));
    return biquads;
}

void setCell(FilterCoefficients& filter, int cell, const VeskDiracChannelParams& channel) {
    const VeskDiracFiirParams fiir = channel.fiir();
    const VeskDiracLinearParams linear = channel.linear();
    filter.setCoefficientsForCell(cell, tapsOf(fiir), biquadsOf(fiir));
    filter.setGainDelayForCell(cell, static_cast<float>(linear.gain()),
                               static_cast<float>(linear.delay()));
}

}  // namespace

QVariantList channelParams(const std::vector<FilterCoefficients>& filters) {
    return listOf(filters, variantRecord);
}

QVariantList bassControlParams(const std::vector<BassControlFilterCoefficients>& filters) {
    return listOf(filters, bassControlRecord);
}

std::vector<FilterCoefficients> channelFilters(const VeskDiracSlot& record, int numberOfVariants) {
    const QVariantList params = record.params();
    const int cells = static_cast<int>(record.size());
    std::vector<FilterCoefficients> filters(static_cast<std::size_t>(numberOfVariants));
    for (int variant = 0; variant < numberOfVariants; ++variant) {
        FilterCoefficients& filter = filters[static_cast<std::size_t>(variant)];
        for (int cell = 0; cell < cells; ++cell) {
            const QVariantList channels = params.at(variant).toList();
            setCell(filter, cell, VeskDiracChannelParams(channels.at(cell)));
        }
    }
    return filters;
}

}  // namespace processing
