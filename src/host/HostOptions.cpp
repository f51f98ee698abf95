#include "host/HostOptions.h"

#include "cli/Parse.h"
#include "host/DescriptionFile.h"

namespace host {

namespace {

constexpr const char* kFooter = R"(
The device runs until SIGINT or SIGTERM and then ends in order; a second signal ends it at once.

Examples:
  veskd devices/stereo.json                    a stereo device, state in ./state/stereo
  veskd --listen 127.0.0.1 --log-level DEBUG devices/ten-channel.json
  veskd --state-dir /tmp/device --worker ./libmine.so devices/stereo.json
  veskd --play song.wav devices/stereo.json
  veskd --playback hw:0 --microphone hw:1 devices/stereo.json
  veskd --print-description devices/stereo.json

Exit codes: 0 ended in order, 1 could not start, 2 wrong usage.)";

std::string checkLogLevel(const std::string& level) {
    return isLogLevel(level) ? "" : "not a log level: " + level;
}

std::string checkAddress(const std::string& address) {
    return isNetworkAddress(address) ? "" : "not an IP address: " + address;
}

void addOptions(CLI::App& app, HostOptions& options) {
    app.add_option("DESCRIPTION", options.descriptionFile, "Device description, a JSON file")
        ->required();
    app.add_option("--worker", options.workers,
                   "Plug-in to run, instead of libvesk_dirac.so; may be repeated")
        ->take_all()
        ->expected(1)
        ->type_name("PATH");
    app.add_option("--state-dir", options.stateDirectory, "Directory of settings and caches")
        ->type_name("PATH");
    app.add_option("--control", options.controlSocket,
                   "Control socket, instead of control.sock in the state directory")
        ->type_name("PATH");
    app.add_option("--listen", options.listenAddress, "Address of the calibration server")
        ->check(CLI::Validator(&checkAddress, ""))
        ->type_name("ADDRESS");
    app.add_option("--playback", options.playbackDevice,
                   "ALSA device of the speakers; \"\": no sound is heard")
        ->type_name("DEVICE");
    app.add_option("--microphone", options.microphoneDevice, "ALSA device of the microphone")
        ->type_name("DEVICE");
    app.add_option("--play", options.soundFile, "Play this sound file once the device runs")
        ->check(CLI::Validator(CLI::ExistingFile).description(""))
        ->type_name("PATH");
    app.add_option("--log-level", options.logLevel, "OFF, FATAL, ERROR, WARN, INFO, DEBUG or TRACE")
        ->check(CLI::Validator(&checkLogLevel, ""))
        ->type_name("LEVEL");
    app.add_option("--log-file", options.logFile, "Log to this file instead of standard error")
        ->type_name("PATH");
    app.add_option("--ready-fd", options.readyDescriptor,
                   "Write \"ready\" to this file descriptor once the device runs")
        ->check(CLI::Validator(CLI::NonNegativeNumber).description(""))
        ->type_name("N");
    app.add_flag("--print-description", options.printDescription,
                 "Check the description, print it with all defaults and end");
}

}  // namespace

ParsedHostOptions parseHostOptions(int argc, const char* const* argv) {
    CLI::App app("Runs a device: the reference platform with its worker plug-ins.", "veskd");
    HostOptions options;
    addOptions(app, options);
    app.footer(kFooter);
    app.set_version_flag("--version", "veskd " VESK_VERSION);
    if (const auto exitCode = cli::parse(app, argc, argv))
        return {std::nullopt, *exitCode};
    return {options, 0};
}

}  // namespace host
