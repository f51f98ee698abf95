#include "calibrate/AlsaCapture.h"

#include "calibrate/AlsaHush.h"
#include "calibrate/CaptureFormat.h"
#include "calibrate/Errors.h"
#include "calibrate/Text.h"

#include <algorithm>

namespace calibrate {
namespace {

constexpr std::chrono::milliseconds kWait(100);
constexpr std::chrono::milliseconds kRest(1);

std::string quoted(const std::string& name) {
    return "the microphone \"" + printable(name) + "\"";
}

[[noreturn]] void failToOpen(const std::string& name, int error) {
    switch (error) {
        case -EBUSY:
            throw DeviceError(DeviceError::Reason::occupied,
                              quoted(name) + " is in use: end the program that records with it");
        case -EACCES:
        case -EPERM:
            throw BadInput(quoted(name) +
                           " may not be opened by this user: join the group \"audio\"");
        default:
            throw BadInput(quoted(name) + " cannot be opened (" + snd_strerror(error) +
                           "): check that it is plugged in; 'arecord -L' lists those there are");
    }
}

snd_pcm_t* openPcm(const std::string& name) {
    const AlsaHush hush;
    snd_pcm_t* pcm = nullptr;
    const int result = snd_pcm_open(&pcm, name.c_str(), SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK);
    if (result < 0)
        failToOpen(name, result);
    return pcm;
}

void chooseChannels(const std::string& name, snd_pcm_t* pcm, snd_pcm_hw_params_t* params,
                    unsigned channel) {
    unsigned most = 0;
    snd_pcm_hw_params_get_channels_max(params, &most);
    unsigned least = channel + 1;
    if (channel >= most || snd_pcm_hw_params_set_channels_min(pcm, params, &least) < 0) {
        throw BadInput(quoted(name) + " has no channel " + std::to_string(channel) + ": it has " +
                       counted(most, "channel") + ", the first is 0");
    }
    unsigned chosen = 0;
    snd_pcm_hw_params_set_channels_first(pcm, params, &chosen);
}

unsigned chooseRate(const std::string& name, snd_pcm_t* pcm, snd_pcm_hw_params_t* params,
                    const std::vector<unsigned>& rates) {
    const auto rate = std::ranges::find_if(
        rates, [&](unsigned one) { return snd_pcm_hw_params_test_rate(pcm, params, one, 0) == 0; });
    if (rate == rates.end()) {
        unsigned lowest = 0;
        unsigned highest = 0;
        snd_pcm_hw_params_get_rate_min(params, &lowest, nullptr);
        snd_pcm_hw_params_get_rate_max(params, &highest, nullptr);
        const std::string range =
            lowest == highest ? hertz(lowest) : hertz(lowest) + " to " + hertz(highest);
        throw BadInput(quoted(name) + " offers " + range + ", but none of the rates at which a " +
                       "room is measured, such as " + hertz(rates.front()) + ": try \"plug" +
                       printable(name) + "\"");
    }
    snd_pcm_hw_params_set_rate(pcm, params, *rate, 0);
    return *rate;
}

const CaptureFormat& chooseFormat(const std::string& name, snd_pcm_t* pcm,
                                  snd_pcm_hw_params_t* params) {
    const auto format = std::ranges::find_if(kCaptureFormats, [&](const CaptureFormat& one) {
        return snd_pcm_hw_params_test_format(pcm, params, one.format) == 0;
    });
    if (format == kCaptureFormats.end()) {
        throw BadInput(quoted(name) + " offers no samples of 16, 24 or 32 bits: try \"plug" +
                       printable(name) + "\"");
    }
    snd_pcm_hw_params_set_format(pcm, params, format->format);
    return *format;
}

}  // namespace

AlsaCapture::AlsaCapture(const std::string& name, unsigned channel,
                         const std::vector<unsigned>& rates)
    : name_(name), pcm_(openPcm(name), &snd_pcm_close) {
    const AlsaHush hush;
    configure(channel, rates);
}

AlsaCapture::~AlsaCapture() {
    stop();
}

void AlsaCapture::configure(unsigned channel, const std::vector<unsigned>& rates) {
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_alloca(&params);
    auto* const pcm = pcm_.get();
    check(snd_pcm_hw_params_any(pcm, params), "be set up");
    check(snd_pcm_hw_params_set_access(pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED),
          "deliver interleaved frames");
    chooseChannels(name_, pcm, params, channel);
    rate_ = chooseRate(name_, pcm, params, rates);
    const auto& format = chooseFormat(name_, pcm, params);
    snd_pcm_uframes_t period = rate_ / 50;
    snd_pcm_uframes_t buffer = rate_;
    snd_pcm_hw_params_set_period_size_near(pcm, params, &period, nullptr);
    snd_pcm_hw_params_set_buffer_size_near(pcm, params, &buffer);
    check(snd_pcm_hw_params(pcm, params), "be set up");
    unsigned channels = 0;
    snd_pcm_hw_params_get_channels(params, &channels);
    const auto sampleSize =
        static_cast<std::size_t>(snd_pcm_format_physical_width(format.format)) / 8;
    convert_ = format.sample;
    channelOffset_ = channel * sampleSize;
    frameSize_ = channels * sampleSize;
    period_ = std::max<std::size_t>(period, 1);
}

void AlsaCapture::start() {
    stop();
    const AlsaHush hush;
    queue_.clear();
    failure_ = nullptr;
    check(snd_pcm_prepare(pcm_.get()), "be made ready");
    check(snd_pcm_start(pcm_.get()), "be started");
    thread_ = std::jthread([this](const std::stop_token& stop) {
        const AlsaHush quiet;
        try {
            capture(stop);
        } catch (const DeviceError&) {
            const std::lock_guard lock(mutex_);
            failure_ = std::current_exception();
            arrived_.notify_all();
        }
    });
}

void AlsaCapture::stop() {
    if (!thread_.joinable())
        return;
    thread_.request_stop();
    thread_.join();
    const AlsaHush hush;
    snd_pcm_drop(pcm_.get());
}

void AlsaCapture::read(std::vector<float>& samples, std::chrono::milliseconds patience) {
    samples.clear();
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, patience, [this] { return !queue_.empty() || failure_; });
    samples.swap(queue_);
    if (samples.empty() && failure_)
        std::rethrow_exception(failure_);
}

/// Until it is stopped; throws DeviceError.
void AlsaCapture::capture(const std::stop_token& stop) {
    std::vector<std::byte> block(period_ * frameSize_);
    bool woken = false;
    while (!stop.stop_requested()) {
        const auto frames = snd_pcm_readi(pcm_.get(), block.data(), period_);
        if (frames > 0) {
            take(block.data(), static_cast<std::size_t>(frames));
            woken = false;
            continue;
        }
        if (frames < 0 && frames != -EAGAIN)
            failRunning(static_cast<int>(frames));
        // A device that wakes its user for nothing would take all of a core.
        if (woken)
            std::this_thread::sleep_for(kRest);
        const int ready = snd_pcm_wait(pcm_.get(), static_cast<int>(kWait.count()));
        if (ready < 0)
            failRunning(ready);
        woken = ready > 0;
    }
}

void AlsaCapture::take(const std::byte* frames, std::size_t count) {
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < count; ++i)
        queue_.push_back(convert_(frames + i * frameSize_ + channelOffset_));
    arrived_.notify_all();
}

void AlsaCapture::check(int result, const std::string& action) const {
    if (result < 0) {
        throw DeviceError(DeviceError::Reason::failed,
                          quoted(name_) + " cannot " + action + ": " + snd_strerror(result));
    }
}

void AlsaCapture::failRunning(int error) const {
    const bool overrun = error == -EPIPE || error == -ESTRPIPE;
    throw DeviceError(DeviceError::Reason::failed,
                      overrun ? quoted(name_) +
                                    " has lost samples, because this machine was too busy to take "
                                    "them: end other programs, and run again"
                              : quoted(name_) + " has stopped (" + snd_strerror(error) +
                                    "): check that it is still plugged in");
}

}  // namespace calibrate
