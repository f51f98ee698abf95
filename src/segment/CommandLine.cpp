#include "segment/CommandLine.h"

#include "cli/Parse.h"
#include "sdk/dldsp/DiracConfiguration.h"
#include "segment/ChannelResponse.h"

#include <string>

namespace segment {

namespace {

constexpr std::size_t kMaximumPoints = 100000;

constexpr const char* kFooter = R"(
Examples:
  vesk-segment show                          the image that the DSP reads
  vesk-segment response 0 --points 50        channel 0 at 48 kHz, 50 frequencies
  vesk-segment taps 1 --variant 44100        its FIR taps, one per line, exact
  vesk-segment watch --json                  one line of JSON per new image

Exit codes: 0 done, 1 no segment or not the DSP's, 2 wrong usage.)";

class Parser {
public:
    Parser() {
        app_.footer(kFooter);
        app_.set_version_flag("--version", "vesk-segment " VESK_VERSION);
        app_.add_option("--key", command_.key, "System V key of the segment")
            ->check(cli::segmentKey())
            ->capture_default_str();
        app_.fallthrough();
        app_.require_subcommand(1);
        addShow();
        addResponse();
        addTaps();
        addWatch();
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

    void addJson(CLI::App* verb) { verb->add_flag("--json", command_.json, "Print JSON"); }

    void addChannel(CLI::App* verb) {
        verb->add_option("CHANNEL", command_.channel, "Channel, from 0")
            ->required()
            ->check(CLI::Range(std::size_t{0}, DiracLimits::channels - 1));
        CLI::Option* const group = verb->add_option("--group", command_.group, "Group of filters")
                                       ->check(CLI::Range(std::size_t{0}, DiracLimits::groups - 1));
        verb->add_option_function<int>(
                "--variant", [this](int rate) { command_.group = rate == 48000 ? 0 : 1; },
                "Group of filters by its sample rate, Hz")
            ->check(CLI::IsMember({48000, 44100}))
            ->excludes(group);
    }

    void addShow() {
        addJson(addVerb(Command::Verb::Show, "show", "Print the image; --json with all numbers"));
    }

    void addResponse() {
        CLI::App* const verb =
            addVerb(Command::Verb::Response, "response",
                    "Print a channel's frequency response from 10 Hz to half the sample rate");
        addChannel(verb);
        verb->add_option("--points", command_.points, "Number of frequencies")
            ->check(CLI::Range(std::size_t{2}, kMaximumPoints))
            ->capture_default_str();
        addJson(verb);
    }

    void addTaps() {
        CLI::App* const verb = addVerb(Command::Verb::Taps, "taps",
                                       "Print a channel's FIR taps, with all their digits");
        addChannel(verb);
        verb->add_flag("--raw", command_.raw, "As 32-bit floats, little-endian, without text");
    }

    void addWatch() {
        CLI::App* const verb =
            addVerb(Command::Verb::Watch, "watch",
                    "Print a line now and for each new image, until interrupted");
        verb->add_option_function<unsigned>(
                "--interval",
                [this](unsigned value) { command_.interval = std::chrono::milliseconds(value); },
                "Time between two looks, ms (default 100)")
            ->check(CLI::Range(1U, 60000U));
        verb->add_option("--count", command_.changes, "End after so many lines")
            ->check(CLI::PositiveNumber);
        addJson(verb);
    }

    CLI::App app_{"Shows the DSP's image in shared memory.", "vesk-segment"};
    Command command_;
};

}  // namespace

ParsedCommandLine parseCommandLine(int argc, const char* const* argv) {
    return Parser().parse(argc, argv);
}

}  // namespace segment
