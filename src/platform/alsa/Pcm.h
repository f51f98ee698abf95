#pragma once

#include "platform/WakeEvent.h"

#include <alsa/asoundlib.h>

#include <poll.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace platform {

/// Why a sound device cannot be used: its ALSA name, what was tried, and the reason.
class AlsaError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// An open PCM, in non-blocking mode. One thread.
class Pcm {
public:
    /// The wanted sizes of a device's periods and buffer; it takes the nearest that it can.
    struct Sizes {
        snd_pcm_uframes_t period;  ///< frames
        snd_pcm_uframes_t buffer;  ///< frames
    };

    /// Throws AlsaError.
    Pcm(const std::string& name, snd_pcm_stream_t direction);

    snd_pcm_t* get() const { return handle_.get(); }
    const std::string& name() const { return name_; }

    /// Sets up exactly this rate and number of channels, in the first of `formats` that the device
    /// can, and returns that format. Throws AlsaError, naming what was asked for and what it can.
    snd_pcm_format_t configure(const std::vector<snd_pcm_format_t>& formats, unsigned rate,
                               unsigned channels, Sizes sizes);

    snd_pcm_uframes_t period() const { return period_; }  ///< frames
    snd_pcm_uframes_t buffer() const { return buffer_; }  ///< frames

    /// From how many frames on a playback starts by itself, and from how many free or captured
    /// frames on wait() returns.
    void setThresholds(snd_pcm_uframes_t start, snd_pcm_uframes_t wake) const;

    /// The device is wanted to move frames from now on: it has just moved some, or is asked to.
    void expectMovement() {
        expectedSince_ = std::chrono::steady_clock::now();
        hasMoved_ = true;
    }

    /// Waits until the device can go on or `interrupt` is signalled (if given). Negative when the
    /// device has stopped: an error for recover(). Throws AlsaError when it has moved nothing for
    /// too long, however often it wakes its user, who rests before the next wait for it.
    int wait(const WakeEvent* interrupt);

    /// Makes the device ready again after an underrun, overrun or suspension; rests when it has
    /// moved nothing since the last one. Throws AlsaError when `error` is anything else, or when
    /// the device has moved nothing for too long.
    void recover(int error, const char* action);

    /// Throws AlsaError when `result` is an error.
    int check(int result, const std::string& action) const;

private:
    void narrow(snd_pcm_hw_params_t* params, const std::vector<snd_pcm_format_t>& formats,
                unsigned rate, unsigned channels);
    std::chrono::milliseconds patience() const;
    int whyItStopped() const;
    void restIfNothingMoved(const WakeEvent* interrupt);

    const std::string name_;
    const std::unique_ptr<snd_pcm_t, int (*)(snd_pcm_t*)> handle_;
    snd_pcm_uframes_t period_{0};
    snd_pcm_uframes_t buffer_{0};
    std::chrono::steady_clock::time_point expectedSince_{std::chrono::steady_clock::now()};
    bool hasMoved_{true};              // since it last let its user go on or was made ready again
    std::vector<pollfd> descriptors_;  // the last one is the interrupting event's
};

}  // namespace platform
