#pragma once

#include <QByteArray>
#include <QString>
#include <alsa/asoundlib.h>

#include <cstddef>
#include <memory>

/// An ALSA capture device. Used in one thread at a time; the destructor closes it.
class AlsaInputDevice {
public:
    /// `sampleRate` in Hz; `periodMilliseconds` is the wanted length of a period and
    /// `bufferMilliseconds` that of the device's buffer.
    AlsaInputDevice(const QString& name, int sampleRate, unsigned channels, snd_pcm_format_t format,
                    int periodMilliseconds, int bufferMilliseconds);
    virtual ~AlsaInputDevice();
    AlsaInputDevice(const AlsaInputDevice&) = delete;
    AlsaInputDevice& operator=(const AlsaInputDevice&) = delete;

    /// Opens the device in exactly this format; false, with a log line saying why, otherwise.
    virtual bool open();

    virtual int bytesPerSample() const;
    virtual int channels() const;

    /// Reads `frames` frames into `data`, which it resizes to what was read; waits for them.
    /// Overruns are recovered and counted. False when the device is gone or not open.
    virtual bool read(QByteArray& data, int frames);

private:
    class Private;
    const std::unique_ptr<Private> private_;
};
