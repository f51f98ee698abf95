#include "host/RecordSchema.h"

#include "sdk/dldsp/DiracConfiguration.h"
#include "sdk/records/VeskValue.h"

#include <algorithm>

namespace host {

namespace {

using Kind = FieldKind;

RecordField optional(const QString& key, Kind kind) {
    return {key, kind, Presence::Optional, nullptr, {}};
}

RecordField record(const QString& key, const RecordSchema& schema, Kind kind = Kind::Record) {
    return {key, kind, Presence::Required, &schema, {}};
}

RecordField optionalList(const QString& key, const RecordSchema& schema) {
    return {key, Kind::RecordList, Presence::Optional, &schema, {}};
}

RecordField countOf(const QString& list, const QString& key) {
    return {key, Kind::I32, Presence::Optional, nullptr, list};
}

const RecordSchema& speakerSchema() {
    using R = VeskDiracSpeakerInfo;
    static const RecordSchema schema{
        {{R::Name(), Kind::String}, {R::Type(), Kind::U32}, {R::GroupId(), Kind::U32}}};
    return schema;
}

const RecordSchema& microphoneSchema() {
    static const RecordSchema schema{{{VeskDiracMicsInfo::Name(), Kind::String}}};
    return schema;
}

const RecordSchema& configSchema() {
    using R = VeskDiracConfig;
    static const RecordSchema schema{{record(R::Speakers(), speakerSchema(), Kind::RecordList),
                                      record(R::Mics(), microphoneSchema(), Kind::RecordList),
                                      {R::NumberOfSlots(), Kind::U32},
                                      {R::StimuliSampleRate(), Kind::I32},
                                      optional(R::StimuliChannels(), Kind::U32),
                                      {R::IpcKey(), Kind::I32},
                                      {R::MicDeviceName(), Kind::String},
                                      {R::MicRecordSampleRate(), Kind::I32},
                                      optional(R::DisableShmUpdate(), Kind::Bool)}};
    return schema;
}

const RecordSchema& parallelBiquadSchema() {
    using R = VeskDiracPiirBiquad;
    static const RecordSchema schema{{{R::A1(), Kind::Double},
                                      {R::A2(), Kind::Double},
                                      {R::B0(), Kind::Double},
                                      {R::B1(), Kind::Double}}};
    return schema;
}

const RecordSchema& biquadSchema() {
    using R = VeskDiracIirBiquad;
    static const RecordSchema schema{{{R::B0(), Kind::Double},
                                      {R::B1(), Kind::Double},
                                      {R::B2(), Kind::Double},
                                      {R::A1(), Kind::Double},
                                      {R::A2(), Kind::Double}}};
    return schema;
}

// A stage that is off, and a cell of the other type, leave their parameters out.

const RecordSchema& fiirSchema() {
    using R = VeskDiracFiirParams;
    static const RecordSchema schema{{{R::Enabled(), Kind::Bool},
                                      optional(R::Taps(), Kind::DoubleList),
                                      countOf(R::Taps(), R::TapSize()),
                                      optionalList(R::Biquads(), parallelBiquadSchema()),
                                      countOf(R::Biquads(), R::BiquadSize())}};
    return schema;
}

const RecordSchema& linearSchema() {
    using R = VeskDiracLinearParams;
    static const RecordSchema schema{{{R::Enabled(), Kind::Bool},
                                      optional(R::Delay(), Kind::Double),
                                      optional(R::Gain(), Kind::Double)}};
    return schema;
}

const RecordSchema& channelSchema() {
    using R = VeskDiracChannelParams;
    static const RecordSchema schema{
        {record(R::Fiir(), fiirSchema()), record(R::Linear(), linearSchema())}};
    return schema;
}

const RecordSchema& cellSchema() {
    using R = VeskDiracBcCells;
    static const RecordSchema schema{{{R::CellIdx(), Kind::I32},
                                      {R::InputIdx(), Kind::I32},
                                      {R::OutputIdx(), Kind::I32},
                                      optionalList(R::Iirs(), biquadSchema()),
                                      countOf(R::Iirs(), R::NumIirs()),
                                      optional(R::Delay(), Kind::Double),
                                      optional(R::Gain(), Kind::Double)}};
    return schema;
}

const RecordSchema& sectionSchema() {
    using R = VeskDiracBcParams;
    static const RecordSchema schema{{{R::SectionIdx(), Kind::I32},
                                      {R::Type(), Kind::I32},
                                      countOf(R::Cells(), R::NumCells()),
                                      record(R::Cells(), cellSchema(), Kind::RecordList)}};
    return schema;
}

/// A slot is read back with both variants, and with as many channels of each as its size says.
std::string slotFault(const QVariantHash& hash) {
    const VeskDiracSlot slot(hash);
    const QVariantList variants = slot.params();
    if (variants.size() < static_cast<int>(DiracLimits::groups))
        return "params needs a list for each of 2 variants";
    const bool complete = std::all_of(variants.begin(), variants.end(), [&](const auto& channels) {
        return channels.toList().size() >= slot.size();
    });
    return complete ? "" : "params has a variant with fewer channels than size says";
}

const RecordSchema& slotSchema() {
    using R = VeskDiracSlot;
    static const RecordSchema schema{{{R::SlotIdx(), Kind::I32},
                                      {R::Name(), Kind::String},
                                      optional(R::Description(), Kind::String),
                                      optional(R::FilterTypeName(), Kind::String),
                                      {R::CreationTime(), Kind::I64},
                                      {R::Size(), Kind::I64},
                                      record(R::Params(), channelSchema(), Kind::RecordListList),
                                      record(R::BcParams(), sectionSchema(), Kind::RecordListList)},
                                     &slotFault};
    return schema;
}

const RecordSchema& slotsListSchema() {
    using R = VeskDiracSlotsList;
    static const RecordSchema schema{
        {optional(R::ActiveSlot(), Kind::I32), record(R::Slots_(), slotSchema(), Kind::RecordList),
         optional(R::DelayGainEnabled(), Kind::Bool), optional(R::FilteringEnabled(), Kind::Bool)}};
    return schema;
}

}  // namespace

const RecordSchema* recordSchema(const QString& type) {
    if (type == VeskValue::DiracConfig())
        return &configSchema();
    return type == VeskValue::DiracSlotsList() ? &slotsListSchema() : nullptr;
}

}  // namespace host
