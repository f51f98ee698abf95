#pragma once

#include <alsa/asoundlib.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace calibrate {

/// One channel of a sound device of this machine that records. A thread takes what the device
/// delivers, so that nothing is lost while the caller does something else.
///
/// The failures' texts are for a person and name the device. One thread besides its own.
class AlsaCapture {
public:
    /// Opens the device and sets it up, for 32-bit samples where it has them and else for what it
    /// has, and for the first of `rates` (Hz) that it can. `channel` counts from 0.
    /// Throws BadInput when there is no such device or channel, or when it offers none of the
    /// rates; DeviceError when it is in use or fails.
    AlsaCapture(const std::string& name, unsigned channel, const std::vector<unsigned>& rates);
    ~AlsaCapture();
    AlsaCapture(const AlsaCapture&) = delete;
    AlsaCapture& operator=(const AlsaCapture&) = delete;

    const std::string& name() const { return name_; }
    unsigned sampleRate() const { return rate_; }  ///< Hz

    /// Begins a recording. Throws DeviceError.
    void start();
    /// Ends it; what was not read is lost.
    void stop();

    /// Replaces `samples` by those that came since the last call; full scale is 1. Waits for the
    /// first of them, and gives none when `patience` is over. Throws DeviceError when the device
    /// is gone or has lost samples.
    void read(std::vector<float>& samples, std::chrono::milliseconds patience);

private:
    using Convert = float (*)(const std::byte*);

    void configure(unsigned channel, const std::vector<unsigned>& rates);
    void capture(const std::stop_token& stop);
    void take(const std::byte* frames, std::size_t count);
    void check(int result, const std::string& action) const;
    [[noreturn]] void failRunning(int error) const;

    const std::string name_;
    const std::unique_ptr<snd_pcm_t, int (*)(snd_pcm_t*)> pcm_;
    unsigned rate_{0};
    std::size_t frameSize_{0};      // bytes
    std::size_t channelOffset_{0};  // bytes
    Convert convert_{nullptr};
    std::size_t period_{0};  // frames

    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<float> queue_;    // guarded by mutex_
    std::exception_ptr failure_;  // guarded by mutex_
    std::jthread thread_;         // none: nothing is recorded
};

}  // namespace calibrate
