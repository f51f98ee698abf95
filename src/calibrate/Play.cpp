#include "calibrate/Play.h"

#include "calibrate/JsonOutput.h"
#include "calibrate/StimulusGains.h"
#include "calibrate/StimulusPlayback.h"
#include "calibrate/Text.h"

namespace calibrate {
namespace {

using Seconds = std::chrono::duration<double>;
using Position = StimulusPlayback::Position;

void play(EndpointClient& client, const Stimulus& stimulus, std::optional<double> gain,
          std::optional<Seconds> duration, const Console& console) {
    StimulusGains gains(client, [&](const std::string& text) { console.warn(text); });
    gains.set(stimulus.speakerIndices(), gain);
    auto bar = console.progressBar();
    if (stimulus.startIn.count() > 0)
        bar.update(0, "waiting for the start");
    StimulusPlayback playback(client, stimulus);
    playback.play(duration, [&](const Position& position) {
        const std::string step = describe(stimulus.speakers[position.speaker]);
        if (duration)
            bar.update(position.elapsed / *duration, step);
        else if (stimulus.repeats())
            bar.elapse(position.elapsed.count(), step);
        else
            bar.update(position.percent / 100, step);
    });
    bar.update(1, "done");
}

Json speakersJson(const Stimulus& stimulus) {
    Json speakers = Json::array();
    for (const auto& speaker : stimulus.speakers)
        speakers.push_back({{"speaker", speaker.index}, {"name", speaker.name}});
    return speakers;
}

void report(const std::string& what, const Stimulus& stimulus, const Console& console) {
    console.report(
        "Played " + what + " through " + counted(stimulus.speakers.size(), "speaker") + ".",
        {{"type", stimulusTypeName(stimulus.type)},
         {"variant", stimulus.variant},
         {"speakers", speakersJson(stimulus)}});
}

}  // namespace

Stimulus readStimulus(EndpointClient& client, protocol::StimulusType type,
                      const StimulusOptions& options) {
    auto speakers = readNamedSpeakers(client, options.speakers);
    auto stimulus = type == protocol::STIMULUS_TYPE_PINK_NOISE
                        ? readNoise(client, options.variant, std::move(speakers))
                        : readSweep(client, options.variant, std::move(speakers));
    stimulus.startIn = options.startIn;
    return stimulus;
}

std::string describe(const Stimulus::Speaker& speaker) {
    return speakerText(static_cast<std::size_t>(speaker.index), speaker.name);
}

void sweep(EndpointClient& client, const StimulusOptions& options, const Console& console) {
    const auto stimulus = readStimulus(client, protocol::STIMULUS_TYPE_LOG_SWEEP, options);
    play(client, stimulus, options.gain, std::nullopt, console);
    report("a sweep", stimulus, console);
}

void noise(EndpointClient& client, const StimulusOptions& options, std::optional<Seconds> duration,
           const Console& console) {
    const auto stimulus = readStimulus(client, protocol::STIMULUS_TYPE_PINK_NOISE, options);
    play(client, stimulus, options.gain, duration, console);
    report("pink noise", stimulus, console);
}

}  // namespace calibrate
