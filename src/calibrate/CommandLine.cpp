#include "calibrate/CommandLine.h"

#include "calibrate/Activate.h"
#include "calibrate/Between.h"
#include "calibrate/Console.h"
#include "calibrate/Delete.h"
#include "calibrate/Design.h"
#include "calibrate/DeviceAddress.h"
#include "calibrate/EndpointClient.h"
#include "calibrate/Errors.h"
#include "calibrate/Gains.h"
#include "calibrate/Info.h"
#include "calibrate/MicrophoneArguments.h"
#include "calibrate/Mode.h"
#include "calibrate/Play.h"
#include "calibrate/Record.h"
#include "calibrate/Rename.h"
#include "calibrate/Run.h"
#include "calibrate/Slots.h"
#include "calibrate/Text.h"
#include "calibrate/Upload.h"
#include "calibrate/Watch.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <functional>

namespace calibrate {
namespace {

constexpr const char* kUploadFooter =
    "\nFilters are read from .wav (.aif, .flac, .caf, .w64, .au), raw floats (.f32, .raw, .bin) "
    "and\n"
    ".txt, a tap on each line. One file may hold a channel for each speaker, or several files in\n"
    "order; files at another sample rate are a set of their own. A filter at a rate of the device "
    "is\n"
    "sent as it is; for the device's other rates it is resampled. With --speaker, the speakers "
    "that\n"
    "are not named stay uncorrected.\n"
    "\nA design.json of 'vesk-calibrate design' goes as a whole: with parallel sections, alignment "
    "and\n"
    "bass management.\n"
    "\nFor example:\n"
    "  vesk-calibrate upload --slot 0 --name Evening --activate room.wav\n"
    "  vesk-calibrate upload --slot 1 --rate 48000 left.f32 right.f32\n"
    "  vesk-calibrate upload --slot 2 filters/design.json";

// A check answers what is wrong with an argument, or nothing.

std::string checkSlotText(const std::string& text) {
    if (!isUtf8(text))
        return "the text is not UTF-8";
    return hasControlCharacter(text) ? "the text holds a control character" : "";
}

/// The command line: what each verb takes, and what was given.
class CommandLine {
public:
    CommandLine() {
        app_.set_version_flag("--version", "vesk-calibrate " VESK_VERSION);
        app_.require_subcommand(1);
        app_.fallthrough();
        app_.get_formatter()->column_width(34);
        addDeviceOptions();
        addRun();
        addInfo();
        addUpload();
        addSlots();
        addActivate();
        addRename();
        addDelete();
        addDesign();
        addGains();
        addMode();
        addSweep();
        addNoise();
        addRecord();
        addWatch();
    }

    int run(std::vector<std::string> arguments, const Environment& environment) {
        std::reverse(arguments.begin(), arguments.end());
        try {
            app_.parse(arguments);
        } catch (const CLI::ParseError& error) {
            return answer(error, environment);
        }
        const Console console(environment, json_, quiet_);
        const std::chrono::duration<double> timeout(timeout_);
        EndpointClient client(DeviceAddress::parse(device_),
                              std::chrono::duration_cast<std::chrono::milliseconds>(timeout),
                              environment.stop);
        verb_(client, console);
        return kExitOk;
    }

private:
    using Verb = std::function<void(EndpointClient&, const Console&)>;

    /// Help and version are answers too; all else is an error of the user.
    int answer(const CLI::ParseError& error, const Environment& environment) const {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
            return app_.exit(error, environment.out, environment.err);
        const auto verbs = app_.get_subcommands();
        const auto rest = app_.remaining();
        if (verbs.empty() && !rest.empty()) {
            throw BadInput(
                "\"" + rest.front() +
                "\" is neither a verb nor an option; 'vesk-calibrate --help' lists them");
        }
        const std::string verb = verbs.empty() ? "" : " " + verbs.front()->get_name();
        throw BadInput(std::string(error.what()) + "; 'vesk-calibrate" + verb +
                       " --help' tells more");
    }

    CLI::App* addVerb(const std::string& name, const std::string& description, Verb verb) {
        auto* command = app_.add_subcommand(name, description);
        command->callback([this, verb = std::move(verb)] { verb_ = verb; });
        return command;
    }

    void addDeviceOptions() {
        app_.add_option("--device", device_, "The device; default: 127.0.0.1:5002")
            ->type_name("HOST[:PORT]");
        app_.add_option("--timeout", timeout_, "Seconds to wait for each answer; default: 5")
            ->type_name("S")
            ->check(between(0.1, 3600));
        app_.add_flag("--json", json_, "Print the result as JSON");
        app_.add_flag("--quiet", quiet_, "Print neither progress nor success");
    }

    void addRun() {
        addRunOptions(*addVerb("run", "Calibrate a room: measure, correct, verify, report",
                               [this](auto& client, const auto& console) {
                                   run_.address = DeviceAddress::parse(device_).text();
                                   calibrateRoom(client, run_, console);
                               }),
                      run_);
    }

    void addInfo() {
        addVerb("info", "Show what the device is made of",
                [](auto& client, const auto& console) { info(client, console); });
    }

    void addUpload() {
        auto* command =
            addVerb("upload", "Store correction filters in a slot",
                    [this](auto& client, const auto& console) { runUpload(client, console); });
        command->add_option("--slot", upload_.slot, "Slot to fill, from 0")->required();
        addTextOption(command, "--name", upload_.name, "Name in the menu; default: the file's");
        addTextOption(command, "--type", upload_.type,
                      "Name of the filter type; default: FIR, of a design more");
        addTextOption(command, "--description", uploadDescription_, "Free text");
        auto* files = command->add_option("FILES", upload_.files,
                                          "A channel for each speaker, in the device's order");
        addRepeatable(command, "--speaker", speakerTexts_,
                      "A filter for one speaker, by name or index")
            ->type_name("SPEAKER=FILE[:CHANNEL]")
            ->excludes(files);
        addRepeatable(command, "--gain", upload_.gains, "Gain of all files, or once for each file")
            ->type_name("DB")
            ->check(between(-200, 60));
        command
            ->add_option("--rate", upload_.format.sampleRate,
                         "Sample rate of files that do not tell it")
            ->type_name("HZ");
        command
            ->add_option("--channels", upload_.format.channels,
                         "Interleaved channels of raw files; default: 1")
            ->check(between(1, 256));
        command->add_flag("--activate", upload_.activate, "Put the slot to use afterwards");
        command->footer(kUploadFooter);
    }

    void runUpload(EndpointClient& client, const Console& console) {
        for (const auto& text : speakerTexts_)
            upload_.speakers.push_back(parseSpeakerArgument(text));
        if (upload_.files.empty() && upload_.speakers.empty()) {
            throw BadInput(
                "upload needs FILES or --speaker; 'vesk-calibrate upload --help' tells "
                "more");
        }
        upload_.description = uploadDescription_.value_or("");
        upload(client, upload_, console);
    }

    void addSlots() {
        addVerb("slots", "List the slots and their filters",
                [](auto& client, const auto& console) { slots(client, console); });
    }

    void addActivate() {
        auto* command =
            addVerb("activate", "Put a slot to use, or switch correction off",
                    [this](auto& client, const auto& console) { runActivate(client, console); });
        command->add_option("SLOT", activateSlot_, "Slot from 0, or \"off\"")
            ->required()
            ->check([](const std::string& text) -> std::string {
                int slot = 0;
                return text == "off" || CLI::detail::lexical_cast(text, slot)
                           ? ""
                           : "\"" + printable(text) + "\" is neither a slot nor \"off\"";
            });
    }

    void runActivate(EndpointClient& client, const Console& console) const {
        if (activateSlot_ == "off")
            activateOff(client, console);
        else
            activate(client, std::stoi(activateSlot_), console);
    }

    void addRename() {
        auto* command = addVerb(
            "rename", "Change the texts of a slot",
            [this](auto& client, const auto& console) { rename(client, rename_, console); });
        command->add_option("SLOT", rename_.slot, "Slot from 0")->required();
        auto* texts = command->add_option_group("texts", "What is not given stays as it is:");
        addTextOption(texts, "--name", rename_.name, "Name in the menu");
        addTextOption(texts, "--type", rename_.type, "Name of the filter type");
        addTextOption(texts, "--description", rename_.description, "Free text");
        texts->require_option(1, 0);
    }

    void addDelete() {
        auto* command = addVerb("delete", "Remove the filter of a slot",
                                [this](auto& client, const auto& console) {
                                    deleteSlot(client, deleteSlot_, deleteConfirmed_, console);
                                });
        command->add_option("SLOT", deleteSlot_, "Slot from 0")->required();
        command->add_flag("--yes", deleteConfirmed_, "Do not ask");
    }

    void addDesign() {
        addDesignOptions(
            *addVerb("design", "Design correction filters from impulse responses",
                     [this](auto&, const auto& console) { designFromFiles(design_, console); }),
            design_);
    }

    void addGains() {
        auto* command =
            addVerb("gains", "Show the gains and their ranges, or set them",
                    [this](auto& client, const auto& console) { gains(client, gains_, console); });
        addGainOption(command, "--speakers", gains_.speaker, "Gain of all speakers, the volume");
        addGainOption(command, "--microphone", gains_.microphone, "Gain of the microphone");
        auto* stimulus =
            addGainOption(command, "--stimulus", gains_.stimulus, "Gain of played stimuli");
        addSpeakerOption(command, gains_.speakers)->needs(stimulus);
    }

    void addMode() {
        auto* command =
            addVerb("mode", "Show what the device's processing does, or switch it",
                    [this](auto& client, const auto& console) { mode(client, mode_, console); });
        addSwitch(command, "--correction", mode_.correction, "The filter of the active slot");
        addSwitch(command, "--gain-delay", mode_.gainAndDelay,
                  "The alignment of the speakers in gain and delay");
    }

    void addSweep() {
        auto* command = addVerb(
            "sweep", "Play a sweep through the speakers, one after the other",
            [this](auto& client, const auto& console) { sweep(client, playing(), console); });
        addStimulusOptions(command);
    }

    void addNoise() {
        auto* command = addVerb("noise", "Play pink noise through the speakers, in turn",
                                [this](auto& client, const auto& console) {
                                    noise(client, playing(), duration(), console);
                                });
        addStimulusOptions(command);
        addDuration(command, "How long to play; default: until Ctrl-C");
    }

    void addRecord() {
        auto* command =
            addVerb("record", "Record a microphone to a WAV file",
                    [this](auto& client, const auto& console) { runRecord(client, console); });
        command->add_option("OUT.wav", recordFile_, "The file, of 32-bit floats")->required();
        command->add_flag("--force", record_.overwrite, "Replace the file if it exists");
        addMicrophoneOptions(*command, record_.microphone);
        addDuration(command, "How long to record; default: until the stimulus ends, or Ctrl-C");
        auto* stimulus =
            command->add_option("--stimulus", recordStimulus_, "What the device plays meanwhile")
                ->type_name("sweep|noise")
                ->check(CLI::IsMember({"sweep", "noise"}));
        for (auto* option : addStimulusOptions(command))
            option->needs(stimulus);
    }

    void runRecord(EndpointClient& client, const Console& console) {
        record_.file = recordFile_;
        record_.duration = duration();
        record_.playing = playing();
        if (recordStimulus_) {
            record_.stimulus = *recordStimulus_ == "noise" ? protocol::STIMULUS_TYPE_PINK_NOISE
                                                           : protocol::STIMULUS_TYPE_LOG_SWEEP;
        }
        record(client, record_, console);
    }

    void addWatch() {
        auto* command = addVerb(
            "watch", "Print a line for each change on the device's side",
            [this](auto& client, const auto& console) { watch(client, watchCount_, console); });
        command->add_option("--count", watchCount_, "End after so many lines; default: at Ctrl-C")
            ->type_name("N")
            ->check(between(1, 1e9));
    }

    std::vector<CLI::Option*> addStimulusOptions(CLI::App* command) {
        return {addSpeakerOption(command, playing_.speakers),
                command->add_option("--variant", playing_.variant, "Variant; default: 0")
                    ->type_name("N"),
                command->add_option("--start-in", startIn_, "Wait before playing; default: 0")
                    ->type_name("MS")
                    ->check(between(0, 600000)),
                addGainOption(command, "--gain", playing_.gain,
                              "Gain while it plays; default: what is set")};
    }

    StimulusOptions playing() const {
        StimulusOptions options = playing_;
        options.startIn = std::chrono::milliseconds(startIn_);
        return options;
    }

    void addDuration(CLI::App* command, const std::string& description) {
        command->add_option("--duration", duration_, description)
            ->type_name("S")
            ->check(between(0.1, 20000));
    }

    std::optional<std::chrono::duration<double>> duration() const {
        return duration_ ? std::optional(std::chrono::duration<double>(*duration_)) : std::nullopt;
    }

    static CLI::Option* addSpeakerOption(CLI::App* command, std::vector<std::string>& speakers) {
        return addRepeatable(command, "--speaker", speakers,
                             "Name or index; may be repeated; default: all")
            ->type_name("SPEAKER");
    }

    static CLI::Option* addGainOption(CLI::App* command, const std::string& name,
                                      std::optional<double>& gain, const std::string& description) {
        return command->add_option(name, gain, description)
            ->type_name("DB")
            ->check(between(-200, 60));
    }

    static void addSwitch(CLI::App* command, const std::string& name, std::optional<bool>& value,
                          const std::string& description) {
        command
            ->add_option_function<std::string>(
                name, [&value](const std::string& text) { value = text == "on"; }, description)
            ->type_name("on|off")
            ->check(CLI::IsMember({"on", "off"}));
    }

    static void addTextOption(CLI::App* command, const std::string& name,
                              std::optional<std::string>& value, const std::string& description) {
        command->add_option(name, value, description)->check(checkSlotText)->type_name("TEXT");
    }

    /// An option that takes one value each time that it is given, so that files may follow it.
    template <class Value>
    static CLI::Option* addRepeatable(CLI::App* command, const std::string& name,
                                      std::vector<Value>& values, const std::string& description) {
        return command->add_option(name, values, description)->allow_extra_args(false);
    }

    CLI::App app_{"Measures and corrects a room through a device's calibration endpoint",
                  "vesk-calibrate"};
    Verb verb_;
    std::string device_{DeviceAddress().text()};
    double timeout_{5};
    bool json_{false};
    bool quiet_{false};
    RunOptions run_;
    UploadOptions upload_;
    std::optional<std::string> uploadDescription_;
    std::vector<std::string> speakerTexts_;
    std::string activateSlot_;
    RenameOptions rename_;
    DesignOptions design_;
    int deleteSlot_{0};
    bool deleteConfirmed_{false};
    GainsOptions gains_;
    ModeOptions mode_;
    StimulusOptions playing_;
    int startIn_{0};                  // ms
    std::optional<double> duration_;  // s
    RecordOptions record_;
    std::string recordFile_;
    std::optional<std::string> recordStimulus_;
    std::optional<std::uint64_t> watchCount_;
};

/// One line, whatever the message holds.
int fail(const Environment& environment, const std::exception& error, ExitCode code) {
    environment.err << "vesk-calibrate: " << printable(error.what()) << std::endl;
    return code;
}

}  // namespace

int runCommandLine(const std::vector<std::string>& arguments, const Environment& environment) {
    try {
        const int code = CommandLine().run(arguments, environment);
        environment.out.flush();
        checkOutput(environment.out);
        return code;
    } catch (const BadInput& error) {
        return fail(environment, error, kExitUsage);
    } catch (const Interrupted& error) {
        return fail(environment, error, kExitInterrupted);
    } catch (const std::exception& error) {
        return fail(environment, error, kExitDevice);
    }
}

}  // namespace calibrate
