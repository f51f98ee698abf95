#include "calibrate/Design.h"

#include "calibrate/Between.h"
#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/TextTable.h"
#include "calibrate/design/DesignFiles.h"
#include "calibrate/design/DesignJson.h"
#include "calibrate/measurement/MicrophoneCalibration.h"
#include "calibrate/measurement/SoundFile.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace calibrate {
namespace {

constexpr const char* kFooter =
    "\nEach channel of the files, in order, is the impulse response of one speaker. With\n"
    "--positions 2, the first half of the channels was measured at the first position of the\n"
    "microphone and the second half at the second, the speakers in the same order. The responses\n"
    "of the first position share one origin of time: it aligns the speakers.\n"
    "\nFor example:\n"
    "  vesk-calibrate design left-right.wav -o filters\n"
    "  vesk-calibrate design seat1.wav seat2.wav --positions 2 --target house -o filters\n"
    "  vesk-calibrate design left.wav right.wav sub.wav --subwoofer 2 --crossover 90 -o filters";

struct Channel {
    std::string name;
    measurement::ImpulseResponse response;
};

std::vector<Channel> readChannels(const DesignOptions& options) {
    std::vector<Channel> channels;
    for (const auto& path : options.files) {
        const auto responses = measurement::impulseResponses(measurement::readSoundFile(path));
        for (std::size_t i = 0; i < responses.size(); ++i) {
            const auto suffix = responses.size() > 1 ? "-" + std::to_string(i) : "";
            channels.push_back({printable(path.stem().string()) + suffix, responses[i]});
        }
    }
    return channels;
}

void calibrate(std::vector<Channel>& channels, const DesignOptions& options) {
    if (!options.microphone)
        return;
    const auto microphone = measurement::readMicrophoneCalibration(*options.microphone);
    for (auto& channel : channels)
        channel.response = measurement::calibrated(channel.response, microphone);
}

void name(std::vector<design::MeasuredSpeaker>& speakers, const DesignOptions& options) {
    if (!options.names.empty() && options.names.size() != speakers.size()) {
        throw BadInput("there are " + counted(speakers.size(), "speaker") + " and " +
                       counted(options.names.size(), "name"));
    }
    for (std::size_t i = 0; i < options.names.size(); ++i)
        speakers[i].name = options.names[i];
    for (const auto index : options.subwoofers) {
        if (index >= speakers.size())
            throw BadInput("there is no speaker " + std::to_string(index) + "; they count from 0");
        speakers[index].subwoofer = true;
    }
}

/// File names and reports need every speaker to be called differently.
void makeNamesDiffer(std::vector<design::MeasuredSpeaker>& speakers) {
    std::set<std::string> taken;
    for (std::size_t i = 0; i < speakers.size(); ++i) {
        auto& name = speakers[i].name;
        while (!taken.insert(design::fileName(name)).second)
            name += "-" + std::to_string(i);
    }
}

std::vector<design::MeasuredSpeaker> readSpeakers(const DesignOptions& options) {
    auto channels = readChannels(options);
    if (options.positions == 0 || channels.size() % options.positions != 0) {
        throw BadInput("the files hold " + counted(channels.size(), "channel") +
                       ", which are not the same speakers at " +
                       counted(options.positions, "position"));
    }
    calibrate(channels, options);
    std::vector<design::MeasuredSpeaker> speakers(channels.size() / options.positions);
    for (std::size_t i = 0; i < channels.size(); ++i) {
        auto& speaker = speakers[i % speakers.size()];
        speaker.positions.push_back(std::move(channels[i].response));
        if (i < speakers.size())
            speaker.name = channels[i].name;
    }
    name(speakers, options);
    makeNamesDiffer(speakers);
    return speakers;
}

design::SystemOptions systemOptions(const DesignOptions& options) {
    auto system = systemOptions(options.correction);
    system.capacities.clear();
    for (const double rate : options.rates) {
        if (std::ranges::count(options.rates, rate) > 1)
            throw BadInput("--rate " + fixed(rate, 0) + " is given twice");
        system.capacities.push_back({rate, options.taps, options.sections});
    }
    return system;
}

void print(const design::SystemDesign& design, const DesignOptions& options,
           const Console& console) {
    TextTable table({"Speaker", "Range", "Before", "After", "Delay", "Gain"});
    for (const auto& speaker : design.speakers) {
        table.add({printable(speaker.name), hertz(speaker.lowest) + " to " + hertz(speaker.highest),
                   fixed(speaker.deviationBefore, 2) + " dB",
                   fixed(speaker.deviationAfter, 2) + " dB",
                   fixed(1000 * speaker.alignment.delay, 2) + " ms",
                   fixed(speaker.alignment.gain, 1) + " dB"});
    }
    console.out() << "Deviation from the target at 1/6 octave:\n";
    table.print(console.out(), "");
    if (design.bass) {
        console.out() << "Together with the subwoofer, 30 Hz to 16 kHz:";
        for (const double deviation : design.bass->deviations)
            console.out() << ' ' << fixed(deviation, 2) << " dB";
        console.out() << '\n';
    }
    const std::string file = printable((options.folder / design::kDesignFile).string());
    console.out() << "Filters: " << file << "; 'vesk-calibrate upload --slot N " << file
                  << "' stores them in a device.\n";
}

}  // namespace

void addDesignOptions(CLI::App& command, DesignOptions& options) {
    command.add_option("FILES", options.files, "Impulse responses, a channel for each speaker")
        ->required();
    command.add_option("-o,--output", options.folder, "Folder for the filters")
        ->required()
        ->type_name("DIR");
    command.add_option("--positions", options.positions, "Positions of the microphone; default: 1")
        ->type_name("N")
        ->check(between(1, 64));
    command.add_option("--name", options.names, "A speaker's name, once for each")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    command.add_option("--microphone", options.microphone, "Calibration file of the microphone")
        ->type_name("FILE");
    addCorrectionOptions(command, options.correction);
    command
        .add_option("--smoothing", options.correction.system.correction.smoothing,
                    "Octaves; default: 0.1667")
        ->type_name("OCTAVES")
        ->check(between(0.01, 2));
    command
        .add_option("--rate", options.rates, "Of a filter, once for each; default: 48000, 44100")
        ->type_name("HZ")
        ->allow_extra_args(false);
    command.add_option("--taps", options.taps, "FIR taps of a filter; default: 1000")
        ->type_name("N");
    command.add_option("--sections", options.sections, "Parallel sections; default: 30")
        ->type_name("N");
    command.add_option("--subwoofer", options.subwoofers, "Index of a speaker, from 0")
        ->type_name("N")
        ->allow_extra_args(false);
    command.footer(kFooter);
}

void designFromFiles(const DesignOptions& options, const Console& console) {
    const auto system = systemOptions(options);
    const auto speakers = readSpeakers(options);
    const auto design = design::designSystem(speakers, system);
    design::writeDesign(options.folder, design, system.correction.target);
    for (const auto& warning : design.warnings)
        console.warn(warning);
    if (console.json())
        console.print(design::toJson(design));
    else
        print(design, options, console);
}

}  // namespace calibrate
