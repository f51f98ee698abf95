// vesk-room: prints a room's ALSA configuration, writes its impulse responses, tells who is in it.

#include "cli/Parse.h"
#include "roomsim/AlsaConfiguration.h"
#include "roomsim/ImpulseResponses.h"
#include "roomsim/RoomError.h"
#include "roomsim/SharedRoom.h"
#include "roomsim/WavFile.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>

namespace {

constexpr int kFailed = 1;
constexpr const char* kPluginName = "libasound_module_pcm_veskroom.so";

constexpr const char* kFooter = R"(
Examples:
  vesk-room config room.json >room.conf      then name room.conf in ALSA_CONFIG_PATH
  vesk-room responses room.json truth.wav    what a measurement in the room should find
  vesk-room status room.json                 while it plays

Exit codes: 0 done, 1 failed, 2 wrong usage.)";

/// Beside this program, as in the build, or where it is installed.
std::string pluginPath() {
    const auto home = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const auto installed = (home / VESK_INSTALLED_LIBRARIES / kPluginName).lexically_normal();
    return std::filesystem::exists(installed) ? installed : home / kPluginName;
}

struct Options {
    std::string room;
    std::string plugin = pluginPath();
    std::string output;
    unsigned int rate = 48000;
    std::string microphone;
};

double secondsOf(roomsim::Flicks time) {
    return static_cast<double>(time) / roomsim::kFlicksPerSecond;
}

void printStream(const char* name, const roomsim::StreamState& stream) {
    std::cout << name << ": " << (stream.running ? "running" : "not running");
    if (stream.starts > 0)
        std::cout << ", started at " << secondsOf(stream.start) << " s (start " << stream.starts
                  << ')';
    std::cout << '\n';
}

void printConfiguration(const Options& options) {
    (void)roomsim::readRoomDescription(options.room);
    std::cout << roomsim::alsaConfiguration(options.plugin, options.room);
}

void writeResponses(const Options& options) {
    const auto room = roomsim::readRoomDescription(options.room, options.microphone);
    auto responses = roomsim::impulseResponses(room, options.rate);
    const std::size_t length = std::ranges::max(responses, {}, &std::vector<float>::size).size();
    for (auto& response : responses)
        response.resize(length);
    roomsim::writeWavFile(options.output, {options.rate, std::move(responses)});
}

void printStatus(const Options& options) {
    const auto state = roomsim::SharedRoom::inspect(options.room);
    if (!state) {
        std::cout << "nobody is in the room\n";
        return;
    }
    std::cout << "room time: " << secondsOf(state->now) << " s\n";
    printStream("playback", state->of(roomsim::Role::kPlayback));
    printStream("capture", state->of(roomsim::Role::kCapture));
}

void addRoom(CLI::App& verb, Options& options) {
    verb.add_option("room", options.room, "The room's JSON file")->required();
}

void addVerbs(CLI::App& app, Options& options) {
    auto* configuration = app.add_subcommand(
        "config", "Print the ALSA configuration of PCM \"room\", for ALSA_CONFIG_PATH");
    addRoom(*configuration, options);
    configuration->add_option("--plugin", options.plugin, "The plug-in")->capture_default_str();
    configuration->callback([&options] { printConfiguration(options); });

    auto* responses = app.add_subcommand(
        "responses", "Write the impulse responses to a WAV file, a channel for each speaker");
    addRoom(*responses, options);
    responses->add_option("output", options.output, "The WAV file to write")->required();
    responses->add_option("--rate", options.rate, "Hz")
        ->capture_default_str()
        ->check(CLI::IsMember(roomsim::kRates));
    responses->add_option("--microphone", options.microphone, "Name or index");
    responses->callback([&options] { writeResponses(options); });

    auto* status = app.add_subcommand("status", "Tell the room's time and its streams");
    addRoom(*status, options);
    status->callback([&options] { printStatus(options); });
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Shows a simulated room; docs/room-simulator.md tells the rest.", "vesk-room");
    app.footer(kFooter);
    app.set_version_flag("--version", "vesk-room " VESK_VERSION);
    app.require_subcommand(1);
    addVerbs(app, options);
    try {
        if (const auto exitCode = cli::parse(app, argc, argv))
            return *exitCode;
    } catch (const std::exception& error) {
        std::cerr << "vesk-room: " << error.what() << '\n';
        return kFailed;
    }
    return std::cout.flush() ? 0 : kFailed;
}
