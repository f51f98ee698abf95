#include "calibrate/DeviceQuery.h"

namespace calibrate {
namespace {

protocol::CellInfo readFirstCell(EndpointClient& client, const protocol::SectionInfo& section) {
    if (section.num_inputs() == 0 || section.num_outputs() == 0)
        return {};
    protocol::CellIndex first;
    first.set_section(section.section());
    return client.cellInfo(first);
}

std::vector<Topology::Section> readSections(EndpointClient& client) {
    std::vector<Topology::Section> sections;
    for (const auto& info : untilRejected([&](int index) { return client.sectionInfo(index); }))
        sections.push_back({info, readFirstCell(client, info)});
    return sections;
}

std::vector<protocol::MicInfo> readMicrophones(EndpointClient& client,
                                               const protocol::DeviceInfo& device) {
    std::vector<protocol::MicInfo> microphones;
    const int count = plausibleCount(device.num_mics(), "microphones");
    microphones.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        microphones.push_back(client.micInfo(i));
    return microphones;
}

}  // namespace

int plausibleCount(unsigned count, const std::string& what) {
    if (count > kMaxCount) {
        throw DeviceError(DeviceError::Reason::failed,
                          "the device claims to have " + std::to_string(count) + " " + what);
    }
    return static_cast<int>(count);
}

bool SlotTable::looksEmpty(const protocol::SlotInfo& slot) {
    return slot.name().empty() && slot.creation_time() == 0;
}

bool isSubwoofer(const protocol::SpeakerInfo& speaker) {
    constexpr unsigned kSubwoofer = 4;
    return speaker.kind() == kSubwoofer;
}

std::vector<protocol::SpeakerInfo> readSpeakers(EndpointClient& client,
                                                const protocol::DeviceInfo& device) {
    std::vector<protocol::SpeakerInfo> speakers;
    const int count = plausibleCount(device.num_speakers(), "speakers");
    speakers.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        speakers.push_back(client.speakerInfo(i));
    return speakers;
}

std::vector<std::string> readSpeakerNames(EndpointClient& client,
                                          const protocol::DeviceInfo& device) {
    std::vector<std::string> names;
    for (const auto& speaker : readSpeakers(client, device))
        names.push_back(speaker.name());
    return names;
}

SlotTable readSlots(EndpointClient& client, const protocol::DeviceInfo& device) {
    SlotTable table;
    const int count = plausibleCount(device.num_slots(), "slots");
    for (int i = 0; i < count; ++i)
        table.slots.push_back(client.slotInfo(i));
    table.active = client.activeSlot();
    const auto mode = ifOffered([&] { return client.operationMode(); });
    table.filtering = mode ? std::optional(mode->filtering()) : std::nullopt;
    return table;
}

Topology readTopology(EndpointClient& client) {
    Topology topology;
    topology.device = client.deviceInfo();
    topology.speakers = readSpeakers(client, topology.device);
    topology.microphones = readMicrophones(client, topology.device);
    topology.sections = readSections(client);
    topology.stimuli =
        ifOffered([&] { return client.stimuliInfo(); }).value_or(protocol::StimuliInfo());
    topology.logSweeps = untilRejected([&](int variant) { return client.logSweepInfo(variant); });
    topology.pinkNoises = untilRejected([&](int variant) { return client.pinkNoiseInfo(variant); });
    topology.fiirs = untilRejected([&](int variant) { return client.fiirInfo(variant); });
    topology.iirs = untilRejected([&](int variant) { return client.iirInfo(variant); });
    topology.delayGains = untilRejected([&](int variant) { return client.delayGainInfo(variant); });
    topology.streaming = ifOffered([&] { return client.streamingInfo(); });
    topology.speakerGain = ifOffered([&] { return client.speakerGainInfo(); });
    topology.microphoneGain = ifOffered([&] { return client.micGainInfo(); });
    topology.stimulusGain = ifOffered([&] { return client.stimuliGainInfo(); });
    topology.slots = readSlots(client, topology.device);
    return topology;
}

void checkSlot(int slot, const protocol::DeviceInfo& device) {
    const int count = plausibleCount(device.num_slots(), "slots");
    if (count == 0)
        throw BadInput("the device has no slots");
    if (slot < 0 || slot >= count) {
        throw BadInput("slot " + std::to_string(slot) +
                       " does not exist: the device has slots 0 to " + std::to_string(count - 1));
    }
}

}  // namespace calibrate
