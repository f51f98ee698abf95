#include "calibrate/Gains.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/Eventually.h"
#include "calibrate/GainRange.h"
#include "calibrate/JsonOutput.h"
#include "calibrate/Stimulus.h"
#include "calibrate/Text.h"
#include "calibrate/TextTable.h"

#include <cmath>

namespace calibrate {
namespace {

using GainInfo = std::optional<protocol::GainInfo>;

/// The gains of a device. What it does not offer is nothing.
struct Gains {
    GainInfo speakerRange;
    GainInfo microphoneRange;
    GainInfo stimulusRange;
    std::optional<double> speaker;
    std::optional<double> microphone;
    std::vector<std::pair<Stimulus::Speaker, std::optional<double>>> stimuli;
};

std::optional<double> readGain(const auto& query) {
    const auto gain = ifOffered(query);
    return gain ? std::optional(withoutRoundingError(*gain)) : std::nullopt;
}

Gains readGains(EndpointClient& client) {
    Gains gains;
    gains.speakerRange = ifOffered([&] { return client.speakerGainInfo(); });
    gains.microphoneRange = ifOffered([&] { return client.micGainInfo(); });
    gains.stimulusRange = ifOffered([&] { return client.stimuliGainInfo(); });
    gains.speaker = readGain([&] { return client.speakerGain(); });
    gains.microphone = readGain([&] { return client.micGain(); });
    for (const auto& speaker : readNamedSpeakers(client, {})) {
        gains.stimuli.emplace_back(speaker,
                                   readGain([&] { return client.stimuliGain(speaker.index); }));
    }
    return gains;
}

/// One gain to set: how it is named, what it is to be, and the device's side of it.
struct Change {
    std::string option;
    double gain;
    protocol::GainInfo range;
    std::function<void(double)> set;
    std::function<double()> read;
};

void addStimulusChanges(std::vector<Change>& changes, EndpointClient& client,
                        const GainsOptions& options) {
    const auto range = client.stimuliGainInfo();
    for (const auto& speaker : readNamedSpeakers(client, options.speakers)) {
        changes.push_back(
            {"--stimulus", *options.stimulus, range,
             [&client, speaker](double gain) { client.setStimuliGain(speaker.index, gain); },
             [&client, speaker] { return client.stimuliGain(speaker.index); }});
    }
}

std::vector<Change> changesOf(EndpointClient& client, const GainsOptions& options) {
    std::vector<Change> changes;
    if (options.speaker) {
        changes.push_back({"--speakers", *options.speaker, client.speakerGainInfo(),
                           [&](double gain) { client.setSpeakerGain(gain); },
                           [&] { return client.speakerGain(); }});
    }
    if (options.microphone) {
        changes.push_back({"--microphone", *options.microphone, client.micGainInfo(),
                           [&](double gain) { client.setMicGain(gain); },
                           [&] { return client.micGain(); }});
    }
    if (options.stimulus)
        addStimulusChanges(changes, client, options);
    return changes;
}

/// A device may round to its own steps.
bool isNear(double gain, const Change& change) {
    constexpr double kLeastStep = 0.01;
    return std::abs(gain - change.gain) <= std::max(change.range.step(), kLeastStep);
}

void apply(const Change& change) {
    change.set(change.gain);
    if (!eventually([&] { return isNear(change.read(), change); })) {
        throw DeviceError(DeviceError::Reason::failed,
                          change.option + " " + decibels(change.gain) +
                              ": the device did not take it, its gain is " +
                              decibels(change.read()));
    }
}

std::string gainText(std::optional<double> gain) {
    if (!gain)
        return "not told";
    return std::isfinite(*gain) ? decibels(*gain) : "not set, silent";
}

void print(const Gains& gains, std::ostream& out) {
    TextTable table({"Gain", "Now", "Range"});
    table.add({"Speakers", gainText(gains.speaker), rangeText(gains.speakerRange)});
    table.add({"Microphone", gainText(gains.microphone), rangeText(gains.microphoneRange)});
    for (const auto& [speaker, gain] : gains.stimuli) {
        table.add(
            {"Stimuli, " + std::to_string(speaker.index) + " \"" + printable(speaker.name) + "\"",
             gainText(gain), rangeText(gains.stimulusRange)});
    }
    table.print(out, "");
}

Json gainJson(std::optional<double> gain, const GainInfo& range) {
    return {{"gain_db", gain && std::isfinite(*gain) ? Json(*gain) : Json()},
            {"range", toJson(range)}};
}

Json toJson(const Gains& gains) {
    Json stimuli = Json::array();
    for (const auto& [speaker, gain] : gains.stimuli) {
        Json entry{{"speaker", speaker.index}, {"name", speaker.name}};
        entry.update(gainJson(gain, gains.stimulusRange));
        stimuli.push_back(entry);
    }
    return {{"speaker", gainJson(gains.speaker, gains.speakerRange)},
            {"microphone", gainJson(gains.microphone, gains.microphoneRange)},
            {"stimuli", stimuli}};
}

}  // namespace

void gains(EndpointClient& client, const GainsOptions& options, const Console& console) {
    const auto changes = changesOf(client, options);
    for (const auto& change : changes)
        checkGain(change.option, change.gain, change.range);
    for (const auto& change : changes)
        apply(change);
    const Gains present = readGains(client);
    if (console.json())
        console.print(toJson(present));
    else if (!console.quiet() || changes.empty())
        print(present, console.out());
}

}  // namespace calibrate
