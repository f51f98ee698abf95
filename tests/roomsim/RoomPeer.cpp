// The other process of the tests: one stream of the PCM "room". It says what it has done in lines,
// and goes on when it reads one.
//
//   room_peer play CHANNELS PLACE FRAMES   an impulse, on the last channel
//   room_peer record FRAMES FILE           to a file of floats
//   room_peer hold-playback CHANNELS       plays silence until it is killed
//   room_peer hold-recording               records until it is killed

#include "roomsim/AlsaPcm.h"

#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

unsigned int channelsOf(const std::string& text) {
    return static_cast<unsigned int>(std::stoul(text));
}

void say(const char* line) {
    std::cout << line << std::endl;
}

void play(const Arguments& arguments) {
    const unsigned int channels = channelsOf(arguments.at(0));
    const std::size_t frames = std::stoul(arguments.at(2));
    Signals signals(channels, Signal(frames));
    signals.back() = impulse(frames, std::stoul(arguments.at(1)), 1.0F);
    const AlsaPcm playback(SND_PCM_STREAM_PLAYBACK, {.channels = channels, .buffer = 32768});
    playback.write(signals);
    playback.start();
    say("started");
    playback.drain();
    say("drained");
}

void record(const Arguments& arguments) {
    const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {.channels = 1, .buffer = 32768});
    capture.start();
    say("started");
    const Signal signal = capture.read(std::stoul(arguments.at(0)));
    std::ofstream(arguments.at(1), std::ios::binary)
        .write(reinterpret_cast<const char*>(signal.data()),
               static_cast<std::streamsize>(signal.size() * sizeof(float)));
    say("recorded");
}

void holdPlayback(const Arguments& arguments) {
    const unsigned int channels = channelsOf(arguments.at(0));
    const AlsaPcm playback(SND_PCM_STREAM_PLAYBACK, {channels});
    const Signals silence(channels, Signal(512));
    playback.write(silence);
    playback.start();
    say("started");
    while (true)
        playback.write(silence);
}

void holdRecording(const Arguments& /*arguments*/) {
    const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {1});
    capture.start();
    say("started");
    while (true)
        (void)capture.read(512);
}

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string, std::function<void(const Arguments&)>> verbs{
        {"play", play},
        {"record", record},
        {"hold-playback", holdPlayback},
        {"hold-recording", holdRecording}};
    try {
        verbs.at(argv[1])(Arguments(argv + 2, argv + argc));
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
