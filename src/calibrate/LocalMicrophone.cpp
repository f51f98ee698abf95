#include "calibrate/LocalMicrophone.h"

#include "calibrate/Errors.h"
#include "calibrate/StimulusCall.h"
#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace calibrate {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// In the order of preference: devices play stimuli, and filter, at the first two.
const std::vector<unsigned>& measurementRates() {
    static const std::vector<unsigned> rates{48'000, 44'100, 96'000, 88'200, 192'000, 176'400};
    return rates;
}

/// How long a device may say nothing about a stimulus: it waits for another playback to end, and
/// for silence after the last sound.
constexpr milliseconds kDevicePause(3000);

constexpr milliseconds kPoll(50);

/// The progress that a device has told, at least, when it has played all: it counts from -1.
constexpr double kWhole = 99;

/// s that are still recorded when the device says that it has ended: sound may be on its way.
constexpr double kTail = 0.5;

/// What the microphone hears, while the device plays a stimulus or none.
class LocalStream final : public SampleStream {
public:
    using Playback = EndpointStream<protocol::Progress>;

    LocalStream(EndpointClient& client, AlsaCapture& capture) : client_(client), capture_(capture) {
        capture_.start();
    }

    ~LocalStream() override {
        playback_.reset();
        capture_.stop();
    }

    /// Only what is played while the microphone listens is heard whole.
    void play(const Stimulus& stimulus) {
        client_.prepareStimuli(preparation(stimulus, false));
        playback_ = std::make_unique<StimulusCall<protocol::Progress>>(
            client_.startStimuli(startTime(stimulus)));
        patience_ = client_.timeout() + kDevicePause + stimulus.startIn;
        lastWord_ = Clock::now();
    }

    std::span<const float> read() override {
        const auto begin = Clock::now();
        for (;;) {
            client_.heedStop();
            followPlayback();
            if (rest_ && *rest_ == 0)
                return {};
            capture_.read(samples_, kPoll);
            if (!samples_.empty())
                return wanted();
            if (Clock::now() - begin > client_.timeout())
                failSilent();
        }
    }

    std::uint64_t invalidSamples() const override { return invalid_; }

private:
    void followPlayback() {
        protocol::Progress message;
        while (playback_) {
            switch (playback_->read(message, milliseconds(0))) {
                case Playback::Event::message:
                    percent_ = std::fmax(percent_, static_cast<double>(message.value()));
                    lastWord_ = Clock::now();
                    break;
                case Playback::Event::end:
                    endPlayback();
                    return;
                case Playback::Event::silence:
                    if (Clock::now() - lastWord_ > patience_)
                        throw DeviceError(
                            DeviceError::Reason::timeout,
                            "the device fell silent: no progress within " + secondsText(patience_));
                    return;
            }
        }
    }

    void endPlayback() {
        playback_.reset();
        rest_ = static_cast<std::size_t>(kTail * capture_.sampleRate());
        if (percent_ < kWhole) {
            throw DeviceError(DeviceError::Reason::failed,
                              "the device stopped playing at " + fixed(percent_, 0) +
                                  " %: something else stopped its player, or is using it");
        }
    }

    /// The samples without those that are no numbers, and without what comes after the end.
    std::span<const float> wanted() {
        for (float& sample : samples_) {
            if (std::isfinite(sample))
                continue;
            sample = 0;
            ++invalid_;
        }
        if (!rest_)
            return samples_;
        const std::size_t count = std::min(*rest_, samples_.size());
        *rest_ -= count;
        return std::span(samples_).first(count);
    }

    [[noreturn]] void failSilent() const {
        throw DeviceError(DeviceError::Reason::timeout,
                          "the microphone \"" + printable(capture_.name()) +
                              "\" delivered nothing for " + secondsText(client_.timeout()) +
                              ": check that it is still plugged in");
    }

    EndpointClient& client_;
    AlsaCapture& capture_;
    std::unique_ptr<Playback> playback_;  // none: nothing is played, or no longer
    milliseconds patience_{0};            // with the device's progress
    Clock::time_point lastWord_;
    double percent_{0};
    std::optional<std::size_t> rest_;  // samples until the end; none: no end in sight
    std::vector<float> samples_;
    std::uint64_t invalid_{0};
};

}  // namespace

LocalMicrophone::LocalMicrophone(EndpointClient& client, const std::string& name, int channel)
    : client_(client), capture_(name, static_cast<unsigned>(channel), measurementRates()) {
}

std::string LocalMicrophone::name() const {
    return printable(capture_.name());
}

std::unique_ptr<SampleStream> LocalMicrophone::listen() {
    return std::make_unique<LocalStream>(client_, capture_);
}

std::unique_ptr<SampleStream> LocalMicrophone::record(const Stimulus& stimulus) {
    auto stream = std::make_unique<LocalStream>(client_, capture_);
    stream->play(stimulus);
    return stream;
}

}  // namespace calibrate
