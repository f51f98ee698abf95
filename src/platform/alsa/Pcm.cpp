#include "platform/alsa/Pcm.h"

#include "platform/alsa/Complaints.h"

#include <algorithm>
#include <cerrno>

namespace platform {

namespace {

/// A device that moves nothing for so long is broken.
constexpr std::chrono::seconds kLongestStandstill{5};

/// How long a device is left alone that woke its user and moved nothing: no longer than a period
/// lasts, so that frames that do come are not late.
constexpr std::chrono::milliseconds kRest{1};

std::string reason(int error) {
    return std::string(snd_strerror(error)) + Complaints::shown();
}

const char* purpose(snd_pcm_stream_t direction) {
    return direction == SND_PCM_STREAM_PLAYBACK ? "playback" : "capture";
}

[[noreturn]] void fail(const std::string& name, const std::string& what) {
    throw AlsaError("\"" + name + "\": " + what);
}

snd_pcm_t* openPcm(const std::string& name, snd_pcm_stream_t direction) {
    const Complaints complaints;
    snd_pcm_t* handle = nullptr;
    const int result = snd_pcm_open(&handle, name.c_str(), direction, SND_PCM_NONBLOCK);
    if (result < 0)
        fail(name,
             std::string("cannot be opened for ") + purpose(direction) + ": " + reason(result));
    return handle;
}

std::string range(unsigned lowest, unsigned highest) {
    return lowest == highest ? std::to_string(lowest)
                             : std::to_string(lowest) + " to " + std::to_string(highest);
}

std::string channelRange(const snd_pcm_hw_params_t* params) {
    unsigned lowest = 0;
    unsigned highest = 0;
    snd_pcm_hw_params_get_channels_min(params, &lowest);
    snd_pcm_hw_params_get_channels_max(params, &highest);
    return range(lowest, highest);
}

std::string rateRange(const snd_pcm_hw_params_t* params) {
    unsigned lowest = 0;
    unsigned highest = 0;
    int direction = 0;
    snd_pcm_hw_params_get_rate_min(params, &lowest, &direction);
    snd_pcm_hw_params_get_rate_max(params, &highest, &direction);
    return range(lowest, highest);
}

std::string names(const std::vector<snd_pcm_format_t>& formats) {
    std::string text;
    for (const snd_pcm_format_t format : formats)
        text += (text.empty() ? "" : ", ") + std::string(snd_pcm_format_name(format));
    return text;
}

std::string formatsOf(snd_pcm_t* pcm, snd_pcm_hw_params_t* params) {
    std::vector<snd_pcm_format_t> able;
    for (int number = 0; number <= SND_PCM_FORMAT_LAST; ++number) {
        const auto format = static_cast<snd_pcm_format_t>(number);
        if (snd_pcm_hw_params_test_format(pcm, params, format) == 0)
            able.push_back(format);
    }
    return names(able);
}

}  // namespace

Pcm::Pcm(const std::string& name, snd_pcm_stream_t direction)
    : name_(name), handle_(openPcm(name, direction), &snd_pcm_close) {
    const int count = check(snd_pcm_poll_descriptors_count(get()), "count its descriptors");
    descriptors_.resize(static_cast<std::size_t>(count) + 1);
}

int Pcm::check(int result, const std::string& action) const {
    if (result < 0)
        fail(name_, "cannot " + action + ": " + reason(result));
    return result;
}

snd_pcm_format_t Pcm::configure(const std::vector<snd_pcm_format_t>& formats, unsigned rate,
                                unsigned channels, Sizes sizes) {
    const Complaints complaints;
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_alloca(&params);
    check(snd_pcm_hw_params_any(get(), params), "be set up");
    check(snd_pcm_hw_params_set_access(get(), params, SND_PCM_ACCESS_RW_INTERLEAVED),
          "take interleaved frames");
    narrow(params, formats, rate, channels);
    check(snd_pcm_hw_params_set_period_size_near(get(), params, &sizes.period, nullptr),
          "have periods of " + std::to_string(sizes.period) + " frames");
    check(snd_pcm_hw_params_set_buffer_size_near(get(), params, &sizes.buffer),
          "have a buffer of " + std::to_string(sizes.buffer) + " frames");
    check(snd_pcm_hw_params(get(), params), "be set up");

    snd_pcm_format_t format = SND_PCM_FORMAT_UNKNOWN;
    snd_pcm_hw_params_get_format(params, &format);
    snd_pcm_hw_params_get_period_size(params, &period_, nullptr);
    snd_pcm_hw_params_get_buffer_size(params, &buffer_);
    return format;
}

/// The number of channels first: it is what most often does not fit, and what people can act upon.
void Pcm::narrow(snd_pcm_hw_params_t* params, const std::vector<snd_pcm_format_t>& formats,
                 unsigned rate, unsigned channels) {
    const std::string channelsBefore = channelRange(params);
    if (snd_pcm_hw_params_set_channels(get(), params, channels) < 0)
        fail(name_,
             "cannot do " + std::to_string(channels) + " channels; it can do " + channelsBefore);
    const std::string ratesBefore = rateRange(params);
    if (snd_pcm_hw_params_set_rate(get(), params, rate, 0) < 0)
        fail(name_, "cannot do " + std::to_string(rate) + " Hz; it can do " + ratesBefore + " Hz");
    const auto format = std::ranges::find_if(formats, [&](snd_pcm_format_t one) {
        return snd_pcm_hw_params_test_format(get(), params, one) == 0;
    });
    if (format == formats.end())
        fail(name_, "cannot do " + names(formats) + "; it can do " + formatsOf(get(), params));
    check(snd_pcm_hw_params_set_format(get(), params, *format), "take its own format");
}

void Pcm::setThresholds(snd_pcm_uframes_t start, snd_pcm_uframes_t wake) const {
    snd_pcm_sw_params_t* params = nullptr;
    snd_pcm_sw_params_alloca(&params);
    check(snd_pcm_sw_params_current(get(), params), "be set up");
    check(snd_pcm_sw_params_set_start_threshold(get(), params, start), "start by itself");
    check(snd_pcm_sw_params_set_avail_min(get(), params, wake), "wake its user");
    check(snd_pcm_sw_params(get(), params), "be set up");
}

int Pcm::wait(const WakeEvent* interrupt) {
    const auto count = static_cast<unsigned>(descriptors_.size() - 1);
    check(snd_pcm_poll_descriptors(get(), descriptors_.data(), count), "be waited for");
    descriptors_.back() = {interrupt ? interrupt->descriptor() : -1, POLLIN, 0};
    for (;;) {
        restIfNothingMoved(interrupt);
        const auto timeout = static_cast<int>(patience().count());
        if (poll(descriptors_.data(), descriptors_.size(), timeout) <= 0)
            continue;
        if (descriptors_.back().revents != 0)
            return 0;
        unsigned short events = 0;
        check(snd_pcm_poll_descriptors_revents(get(), descriptors_.data(), count, &events),
              "be waited for");
        if ((events & (POLLERR | POLLNVAL)) != 0)
            return whyItStopped();
        hasMoved_ = false;
        if (events != 0)
            return 0;
    }
}

/// How long the device may still take to move a frame; more than 0.
std::chrono::milliseconds Pcm::patience() const {
    const auto waited = std::chrono::steady_clock::now() - expectedSince_;
    if (waited >= kLongestStandstill)
        fail(name_, snd_pcm_stream(get()) == SND_PCM_STREAM_PLAYBACK
                        ? "has taken no audio for 5 s"
                        : "has delivered nothing for 5 s");
    return std::chrono::ceil<std::chrono::milliseconds>(kLongestStandstill - waited);
}

/// Without it a device that always seems ready, or fails as soon as it starts, takes all of a core.
void Pcm::restIfNothingMoved(const WakeEvent* interrupt) {
    if (hasMoved_)
        return;
    const int descriptor = interrupt ? interrupt->descriptor() : -1;
    waitForInput({&descriptor, 1}, kRest);
}

/// Of a device that wakes its user with an error. One that is gone may look as if it still ran: its
/// state and its counts are then the last ones that were known.
int Pcm::whyItStopped() const {
    const int result = snd_pcm_hwsync(get());
    switch (snd_pcm_state(get())) {
        case SND_PCM_STATE_XRUN:
            return -EPIPE;
        case SND_PCM_STATE_SUSPENDED:
            return -ESTRPIPE;
        default:
            return result < 0 ? result : -ENODEV;
    }
}

void Pcm::recover(int error, const char* action) {
    if (error != -EPIPE && error != -ESTRPIPE)
        check(error, action);
    patience();
    restIfNothingMoved(nullptr);
    hasMoved_ = false;
    // A suspended device is set up anew instead of resumed: its buffer is old by then.
    if (const int result = snd_pcm_prepare(get()); result < 0)
        check(result, std::string("be made ready again to ") + action);
}

}  // namespace platform
