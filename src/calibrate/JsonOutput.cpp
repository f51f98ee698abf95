#include "calibrate/JsonOutput.h"

#include "calibrate/Text.h"

#include <algorithm>
#include <cctype>

namespace calibrate {
namespace {

/// The lower-case end of an enumerator's name, behind the name of its enumeration.
std::string shortName(const std::string& enumerator, const std::string& prefix) {
    std::string name =
        enumerator.starts_with(prefix) ? enumerator.substr(prefix.size()) : enumerator;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name;
}

template <class List, class Convert>
Json listOf(const List& list, Convert convert) {
    Json result = Json::array();
    for (const auto& element : list)
        result.push_back(convert(element));
    return result;
}

template <class Value>
Json orNull(const std::optional<Value>& value, auto convert) {
    return value ? Json(convert(*value)) : Json();
}

Json deviceJson(const protocol::DeviceInfo& device) {
    return {{"manufacturer", device.manufacturer()}, {"name", device.device_name()},
            {"model", device.model_name()},          {"uuid", device.uuid()},
            {"extra_info", device.extra_info()},     {"slots", device.num_slots()}};
}

Json speakerJson(const protocol::SpeakerInfo& speaker) {
    return {{"name", speaker.name()},
            {"kind", speaker.kind()},
            {"group", speaker.group()},
            {"associated_input",
             speaker.has_associated_input() ? Json(speaker.associated_input().value()) : Json()}};
}

Json sectionJson(const Topology::Section& section) {
    return {{"section", section.info.section()},
            {"inputs", section.info.num_inputs()},
            {"outputs", section.info.num_outputs()},
            {"disposition", shortName(SectionDisposition_Name(section.info.disposition()),
                                      "SECTION_DISPOSITION_")},
            {"filter_kind", filterKindName(section.cell.kind())},
            {"variants", listOf(section.cell.variants(), [](auto id) { return Json(id); })}};
}

Json stimulusJson(const protocol::Stimulus& stimulus) {
    return {{"type", stimulusTypeName(stimulus.type())}, {"variant", stimulus.variant()}};
}

Json logSweepJson(const protocol::LogSweepInfo& sweep) {
    return {{"variant", sweep.variant()},
            {"sample_rate_hz", sweep.sample_rate()},
            {"start_frequency_hz", sweep.start_frequency()},
            {"end_frequency_hz", sweep.end_frequency()},
            {"length_samples", sweep.length()},
            {"silence_samples", sweep.silence()},
            {"fade_out_tail_hz", sweep.fade_out_tail()},
            {"periods", sweep.num_periods()}};
}

Json pinkNoiseJson(const protocol::PinkNoiseInfo& noise) {
    return {{"variant", noise.variant()},
            {"sample_rate_hz", noise.sample_rate()},
            {"start_frequency_hz", noise.start_frequency()},
            {"end_frequency_hz", noise.end_frequency()},
            {"length_samples", noise.length()}};
}

Json fiirJson(const protocol::FIIRInfo& info) {
    return {{"variant", info.variant()},
            {"sample_rate_hz", info.sample_rate()},
            {"max_taps", info.max_taps()},
            {"max_biquads", info.max_biquads()}};
}

Json iirJson(const protocol::IIRInfo& info) {
    return {{"variant", info.variant()},
            {"sample_rate_hz", info.sample_rate()},
            {"max_biquads", info.max_biquads()}};
}

Json delayGainJson(const protocol::DelayGainInfo& info) {
    return {{"variant", info.variant()},
            {"sample_rate_hz", info.sample_rate()},
            {"max_delay_samples", info.max_delay()},
            {"max_gain_db", info.max_gain()}};
}

Json gainJson(const protocol::GainInfo& gain) {
    return {{"minimum_db", gain.minimum()},
            {"step_db", gain.step()},
            {"maximum_db", gain.maximum()},
            {"settling_time_ms", gain.settling_time()}};
}

Json streamingJson(const protocol::StreamingInfo& info) {
    return {{"sample_rate_hz", info.sample_rate()},
            {"block_length_samples", info.block_length()},
            {"supports_recording", info.supports_recording()},
            {"supports_streaming", info.supports_streaming()}};
}

Json slotJson(int index, const SlotTable& table) {
    const auto& slot = table.slots[static_cast<std::size_t>(index)];
    const std::string created = utcTime(slot.creation_time());
    return {{"slot", index},
            {"empty", SlotTable::looksEmpty(slot)},
            {"active", index == table.active},
            {"name", slot.name()},
            {"type", slot.filter_type_name()},
            {"description", slot.description()},
            {"creation_time", slot.creation_time()},
            {"created_utc", created.empty() ? Json() : Json(created)}};
}

Json conversionJson(const VariantDesign::Conversion& conversion) {
    return {{"from_rates_hz", conversion.fromRates},
            {"delay_samples", conversion.delay},
            {"deviation_db", conversion.deviation},
            {"band_edge_hz", conversion.bandEdge},
            {"lost_energy", conversion.lostEnergy}};
}

Json variantJson(const VariantDesign& design, const std::vector<std::string>& speakerNames) {
    Json taps = Json::array();
    for (std::size_t i = 0; i < design.taps.size(); ++i)
        taps.push_back({{"speaker", speakerNames[i]}, {"taps", design.taps[i].size()}});
    return {{"variant", design.variant.id},
            {"sample_rate_hz", design.variant.sampleRate},
            {"speakers", taps},
            {"resampled", orNull(design.conversion, conversionJson)}};
}

}  // namespace

std::string filterKindName(protocol::FilterKind kind) {
    return protocol::FilterKind_IsValid(kind) ? shortName(FilterKind_Name(kind), "FILTER_KIND_")
                                              : "kind " + std::to_string(static_cast<int>(kind));
}

std::string stimulusTypeName(protocol::StimulusType type) {
    return protocol::StimulusType_IsValid(type)
               ? shortName(StimulusType_Name(type), "STIMULUS_TYPE_")
               : "type " + std::to_string(static_cast<int>(type));
}

Json toJson(const SlotTable& table) {
    Json slots = Json::array();
    for (std::size_t i = 0; i < table.slots.size(); ++i)
        slots.push_back(slotJson(static_cast<int>(i), table));
    return {{"active_slot", table.active < 0 ? Json() : Json(table.active)},
            {"filtering", orNull(table.filtering, [](bool on) { return on; })},
            {"slots", slots}};
}

Json toJson(const std::optional<protocol::GainInfo>& range) {
    return orNull(range, gainJson);
}

Json toJson(const Topology& topology) {
    Json slots = toJson(topology.slots);
    return {{"device", deviceJson(topology.device)},
            {"speakers", listOf(topology.speakers, speakerJson)},
            {"microphones", listOf(topology.microphones,
                                   [](const auto& mic) {
                                       return Json{{"name", mic.name()}};
                                   })},
            {"sections", listOf(topology.sections, sectionJson)},
            {"stimuli", listOf(topology.stimuli.stimuli(), stimulusJson)},
            {"log_sweeps", listOf(topology.logSweeps, logSweepJson)},
            {"pink_noises", listOf(topology.pinkNoises, pinkNoiseJson)},
            {"fiir_capacities", listOf(topology.fiirs, fiirJson)},
            {"iir_capacities", listOf(topology.iirs, iirJson)},
            {"delay_gain_capacities", listOf(topology.delayGains, delayGainJson)},
            {"streaming", orNull(topology.streaming, streamingJson)},
            {"gain_ranges",
             {{"speaker", toJson(topology.speakerGain)},
              {"microphone", toJson(topology.microphoneGain)},
              {"stimulus", toJson(topology.stimulusGain)}}},
            {"active_slot", slots["active_slot"]},
            {"filtering", slots["filtering"]},
            {"slots", slots["slots"]}};
}

Json toJson(const FilterDesign& design, const std::vector<std::string>& speakerNames) {
    Json variants = Json::array();
    for (const auto& variant : design.variants)
        variants.push_back(variantJson(variant, speakerNames));
    return variants;
}

}  // namespace calibrate
