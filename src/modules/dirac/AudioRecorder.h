#pragma once

#include <QString>

#include <utility>

/// What microphone recorders are made with. Constant, so any thread may use it.
class AudioRecorderFactory {
public:
    /// `deviceName`: the ALSA capture device; `sampleRate` in Hz.
    AudioRecorderFactory(QString deviceName, int sampleRate)
        : deviceName_(std::move(deviceName)), sampleRate_(sampleRate) {}

    const QString& deviceName() const { return deviceName_; }
    int sampleRate() const { return sampleRate_; }

private:
    const QString deviceName_;
    const int sampleRate_;
};
