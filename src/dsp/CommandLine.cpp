#include "dsp/CommandLine.h"

#include "cli/Parse.h"

#include <string>

namespace dsp {
namespace {

constexpr const char* kFooter = R"(
Examples:
  vesk-dsp process song.wav corrected.wav       through the filter that the device uses now
  vesk-dsp save living-room.image               keep that filter in a file
  vesk-dsp process song.wav corrected.wav --image living-room.image
  vesk-dsp process sweep.wav out.wav --rate 96000 --keep-latency

Exit codes: 0 done, 1 no image or an unusable file, 2 wrong usage.)";

class Parser {
public:
    Parser() {
        app_.footer(kFooter);
        app_.set_version_flag("--version", "vesk-dsp " VESK_VERSION);
        app_.require_subcommand(1);
        addProcess();
        addSave();
    }

    ParsedCommandLine parse(int argc, const char* const* argv) {
        if (const auto exitCode = cli::parse(app_, argc, argv))
            return {std::nullopt, *exitCode};
        return {command_, 0};
    }

private:
    CLI::App* addVerb(Command::Verb verb, const char* name, const char* description) {
        CLI::App* const app = app_.add_subcommand(name, description);
        app->callback([this, verb] { command_.verb = verb; });
        return app;
    }

    CLI::Option* addKey(CLI::App* verb) {
        return verb->add_option("--key", command_.image.key, "System V key of the segment")
            ->check(cli::segmentKey())
            ->capture_default_str();
    }

    void addProcess() {
        CLI::App* const verb =
            addVerb(Command::Verb::Process, "process",
                    "Send a sound file through the DSP; its channels are the device's, in order");
        verb->add_option("IN", command_.input, "Sound file")->required();
        verb->add_option("OUT", command_.output, "WAV file to write")->required();
        verb->add_option("--rate", command_.rate,
                         "Take the samples for ones at this rate, Hz, whatever the file says")
            ->check(CLI::IsMember({44100, 48000, 88200, 96000, 176400, 192000}));
        verb->add_flag("--keep-latency", command_.keepsLatency,
                       "Leave the DSP's latency in the output; otherwise it is in step with IN");
        CLI::Option* const key = addKey(verb);
        verb->add_option("--image", command_.image.file, "Saved image, instead of the segment")
            ->excludes(key);
    }

    void addSave() {
        CLI::App* const verb =
            addVerb(Command::Verb::Save, "save", "Write the image in the segment to a file");
        verb->add_option("FILE", command_.output, "File to write")->required();
        addKey(verb);
    }

    CLI::App app_{"Sends sound files through the DSP's correction.", "vesk-dsp"};
    Command command_;
};

}  // namespace

ParsedCommandLine parseCommandLine(int argc, const char* const* argv) {
    return Parser().parse(argc, argv);
}

}  // namespace dsp
