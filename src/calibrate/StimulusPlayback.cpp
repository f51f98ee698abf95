#include "calibrate/StimulusPlayback.h"

#include "calibrate/Errors.h"
#include "calibrate/StimulusCall.h"
#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>

namespace calibrate {
namespace {

/// What a device may take besides answering: it waits up to 2 s for another playback to end, and
/// as long after the last sound.
constexpr std::chrono::milliseconds kDevicePause(3000);

/// The progress that a device has told, at least, when it has played all: it counts from -1.
constexpr double kWhole = 99;

/// Beyond this a percentage is no progress.
constexpr double kMaxPercent = 1e9;

std::unique_ptr<EndpointStream<protocol::Progress>> start(EndpointClient& client,
                                                          const Stimulus& stimulus) {
    client.prepareStimuli(preparation(stimulus, false));
    return std::make_unique<StimulusCall<protocol::Progress>>(
        client.startStimuli(startTime(stimulus)));
}

}  // namespace

StimulusPlayback::StimulusPlayback(EndpointClient& client, Stimulus stimulus)
    : stimulus_(std::move(stimulus)),
      timeout_(client.timeout()),
      stream_(start(client, stimulus_)) {
}

void StimulusPlayback::play(std::optional<Seconds> duration,
                            const std::function<void(Position)>& progress) {
    while (!isOver(duration)) {
        switch (next(waitingTime(duration))) {
            case Event::message:
                progress(position());
                break;
            case Event::end:
                checkComplete();
                return;
            case Event::silence:
                if (!isOver(duration)) {
                    throw DeviceError(
                        DeviceError::Reason::timeout,
                        "the device fell silent: no progress within " + secondsText(patience()));
                }
                break;
        }
    }
}

/// The device tells a percentage; its last message is 1.0 all the same, which is no way back.
StimulusPlayback::Event StimulusPlayback::next(std::chrono::milliseconds patience) {
    protocol::Progress message;
    const auto event = stream_->read(message, patience);
    if (event == Event::message) {
        begin_ = begin_.value_or(Clock::now());
        percent_ =
            std::fmax(percent_, std::fmin(static_cast<double>(message.value()), kMaxPercent));
    }
    return event;
}

StimulusPlayback::Position StimulusPlayback::position() const {
    const auto count = stimulus_.speakers.size();
    const auto played = static_cast<std::size_t>(percent_ / 100 * static_cast<double>(count));
    return {percent_, stimulus_.repeats() ? played % count : std::min(played, count - 1),
            Clock::now() - *begin_};
}

bool StimulusPlayback::isOver(std::optional<Seconds> duration) const {
    return duration && begin_ && Clock::now() - *begin_ >= *duration;
}

std::chrono::milliseconds StimulusPlayback::patience() const {
    return timeout_ + kDevicePause + (begin_ ? std::chrono::milliseconds(0) : stimulus_.startIn);
}

std::chrono::milliseconds StimulusPlayback::waitingTime(std::optional<Seconds> duration) const {
    if (!duration || !begin_)
        return patience();
    const auto rest = *begin_ - Clock::now() + *duration;
    return std::clamp(std::chrono::ceil<std::chrono::milliseconds>(rest),
                      std::chrono::milliseconds(1), patience());
}

void StimulusPlayback::checkComplete() const {
    if (percent_ < kWhole) {
        throw DeviceError(DeviceError::Reason::failed,
                          "the device stopped playing at " + fixed(percent_, 0) +
                              " %: something else stopped its player, or is using it");
    }
}

}  // namespace calibrate
