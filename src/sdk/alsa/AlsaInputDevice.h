#pragma once

#include <QByteArray>
#include <QString>
#include <alsa/asoundlib.h>

#include <memory>

/// An ALSA capture device. Used in one thread at a time; the destructor closes it.
class AlsaInputDevice {
public:
    /// `sampleRate` in Hz; a period of the device is at most about `periodMilliseconds` long, and
    /// shorter for the sake of small reads; `bufferMilliseconds` is the wanted length of its
    /// buffer.
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
    /// Overruns, audio that was lost because nobody read it, are recovered and counted in the log.
    /// False when the device is gone, delivers nothing for seconds, or is not open.
    virtual bool read(QByteArray& data, int frames);

private:
    class Private;
    const std::unique_ptr<Private> private_;
};
