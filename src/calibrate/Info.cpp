#include "calibrate/Info.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/GainRange.h"
#include "calibrate/JsonOutput.h"
#include "calibrate/Slots.h"
#include "calibrate/Text.h"
#include "calibrate/TextTable.h"

namespace calibrate {
namespace {

const std::string kIndent = "  ";

std::string orDash(const std::string& text) {
    return text.empty() ? "-" : printable(text);
}

void printHeading(std::ostream& out, const std::string& heading) {
    out << '\n' << heading << '\n';
}

void printIdentity(std::ostream& out, const protocol::DeviceInfo& device) {
    out << orDash(device.device_name()) << '\n';
    out << kIndent << "Manufacturer  " << orDash(device.manufacturer()) << '\n';
    out << kIndent << "Model         " << orDash(device.model_name()) << '\n';
    out << kIndent << "UUID          " << orDash(device.uuid()) << '\n';
    if (!device.extra_info().empty())
        out << kIndent << "Remarks       " << printable(device.extra_info()) << '\n';
}

void printSpeakers(std::ostream& out, const std::vector<protocol::SpeakerInfo>& speakers) {
    printHeading(out, "Speakers");
    TextTable table({"Index", "Name", "Kind", "Group", "Input"});
    for (std::size_t i = 0; i < speakers.size(); ++i) {
        const auto& speaker = speakers[i];
        const std::string kind = std::to_string(speaker.kind());
        table.add(
            {std::to_string(i), printable(speaker.name()),
             isSubwoofer(speaker) ? kind + " (subwoofer)" : kind, std::to_string(speaker.group()),
             speaker.has_associated_input() ? std::to_string(speaker.associated_input().value())
                                            : "-"});
    }
    table.print(out, kIndent);
}

void printMicrophones(std::ostream& out, const std::vector<protocol::MicInfo>& microphones) {
    printHeading(out, "Microphones");
    TextTable table({"Index", "Name"});
    for (std::size_t i = 0; i < microphones.size(); ++i)
        table.add({std::to_string(i), printable(microphones[i].name())});
    table.print(out, kIndent);
}

std::string variantsText(const protocol::CellInfo& cell) {
    std::string text;
    for (const auto id : cell.variants())
        text += (text.empty() ? "" : ", ") + std::to_string(id);
    return text.empty() ? "-" : text;
}

std::string dispositionText(protocol::SectionDisposition disposition) {
    switch (disposition) {
        case protocol::SECTION_DISPOSITION_DIAGONAL:
            return "diagonal";
        case protocol::SECTION_DISPOSITION_MATRIX:
            return "matrix";
        default:
            return "-";
    }
}

void printSections(std::ostream& out, const std::vector<Topology::Section>& sections) {
    printHeading(out, "Sections");
    TextTable table({"Section", "Inputs", "Outputs", "Cells", "Filter", "Variants"});
    for (const auto& section : sections) {
        table.add({std::to_string(section.info.section()),
                   std::to_string(section.info.num_inputs()),
                   std::to_string(section.info.num_outputs()),
                   dispositionText(section.info.disposition()), filterKindName(section.cell.kind()),
                   variantsText(section.cell)});
    }
    table.print(out, kIndent);
}

std::string band(double start, double end) {
    return start == 0 && end == 0 ? "whole band" : hertz(start) + " to " + hertz(end);
}

std::string duration(unsigned samples, float sampleRate) {
    if (samples == 0)
        return "-";
    const std::string count = std::to_string(samples) + " samples";
    return sampleRate > 0
               ? count + " (" + fixed(samples / static_cast<double>(sampleRate), 3) + " s)"
               : count;
}

void printStimuli(std::ostream& out, const Topology& topology) {
    printHeading(out, "Stimuli");
    TextTable table(
        {"Type", "Variant", "Rate", "Band", "Length", "Silence", "Fade-out", "Periods"});
    for (const auto& sweep : topology.logSweeps) {
        table.add({stimulusTypeName(protocol::STIMULUS_TYPE_LOG_SWEEP),
                   std::to_string(sweep.variant()), hertz(static_cast<double>(sweep.sample_rate())),
                   band(static_cast<double>(sweep.start_frequency()),
                        static_cast<double>(sweep.end_frequency())),
                   duration(sweep.length(), sweep.sample_rate()),
                   duration(sweep.silence(), sweep.sample_rate()),
                   sweep.fade_out_tail() > 1 ? hertz(sweep.fade_out_tail()) : "-",
                   std::to_string(sweep.num_periods())});
    }
    for (const auto& noise : topology.pinkNoises) {
        table.add({stimulusTypeName(protocol::STIMULUS_TYPE_PINK_NOISE),
                   std::to_string(noise.variant()), hertz(static_cast<double>(noise.sample_rate())),
                   band(static_cast<double>(noise.start_frequency()),
                        static_cast<double>(noise.end_frequency())),
                   duration(noise.length(), noise.sample_rate()), "-", "-", "-"});
    }
    table.print(out, kIndent);
    std::string offered;
    for (const auto& stimulus : topology.stimuli.stimuli()) {
        offered += (offered.empty() ? "" : ", ") + stimulusTypeName(stimulus.type()) + " " +
                   std::to_string(stimulus.variant());
    }
    out << kIndent << "Offered for measuring: " << orDash(offered) << '\n';
}

void printCapacities(std::ostream& out, const Topology& topology) {
    printHeading(out, "Filter capacities of a cell");
    TextTable table({"Filter", "Variant", "Rate", "Holds"});
    for (const auto& info : topology.fiirs) {
        table.add({"fiir", std::to_string(info.variant()),
                   hertz(static_cast<double>(info.sample_rate())),
                   counted(info.max_taps(), "tap") + ", " + counted(info.max_biquads(), "biquad")});
    }
    for (const auto& info : topology.iirs) {
        table.add({"iir", std::to_string(info.variant()),
                   hertz(static_cast<double>(info.sample_rate())),
                   counted(info.max_biquads(), "biquad")});
    }
    for (const auto& info : topology.delayGains) {
        table.add({"delay_gain", std::to_string(info.variant()),
                   hertz(static_cast<double>(info.sample_rate())),
                   counted(info.max_delay(), "sample") + ", up to " +
                       fixed(static_cast<double>(info.max_gain()), 1) + " dB"});
    }
    table.print(out, kIndent);
}

void printGains(std::ostream& out, const Topology& topology) {
    printHeading(out, "Gain ranges");
    out << kIndent << "Speakers    " << rangeText(topology.speakerGain) << '\n';
    out << kIndent << "Microphone  " << rangeText(topology.microphoneGain) << '\n';
    out << kIndent << "Stimuli     " << rangeText(topology.stimulusGain) << '\n';
}

void printStreaming(std::ostream& out, const std::optional<protocol::StreamingInfo>& streaming) {
    printHeading(out, "Microphone stream");
    if (!streaming) {
        out << kIndent << "not told\n";
        return;
    }
    out << kIndent << hertz(static_cast<double>(streaming->sample_rate())) << ", blocks of "
        << counted(streaming->block_length(), "sample")
        << (streaming->supports_recording() ? ", while a stimulus plays" : "")
        << (streaming->supports_streaming() ? ", at any time" : "") << '\n';
}

}  // namespace

void info(EndpointClient& client, const Console& console) {
    const Topology topology = readTopology(client);
    if (console.json()) {
        console.print(toJson(topology));
        return;
    }
    std::ostream& out = console.out();
    printIdentity(out, topology.device);
    printSpeakers(out, topology.speakers);
    printMicrophones(out, topology.microphones);
    printSections(out, topology.sections);
    printCapacities(out, topology);
    printStimuli(out, topology);
    printStreaming(out, topology.streaming);
    printGains(out, topology);
    printHeading(out, "Slots");
    printSlots(out, topology.slots, kIndent);
}

}  // namespace calibrate
