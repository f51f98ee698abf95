#pragma once

#include <QByteArray>
#include <QString>
#include <QThread>
#include <endpoint.grpc.pb.h>

#include <atomic>
#include <memory>
#include <mutex>

class AlsaInputDevice;

/// Captures the measurement microphone and writes it, block by block, to a client's stream.
///
/// A recorder records from its construction until stop(), in a thread of its own; when the device
/// cannot be opened, or fails later, it merely sends nothing more. Construction, stop() and
/// destruction are for one thread, which keeps the stream alive meanwhile and does not write to it.
class AudioRecorder final : public QThread {
public:
    /// `deviceName`: an ALSA name; `sampleRate` in Hz. Waits up to 10 s for the microphone and then
    /// captures whether or not the power manager has given it.
    AudioRecorder(const QString& deviceName, int sampleRate,
                  grpc::ServerWriter<dio::endpoint::AudioBuffers>* writer);
    AudioRecorder(
        const QString& deviceName, int sampleRate,
        grpc::ServerReaderWriter<dio::endpoint::AudioBuffers, dio::endpoint::AudioBuffers>* stream);
    /// Stops.
    ~AudioRecorder() override;

    /// Ends the capture and gives the microphone back; waits for a block that is being written. A
    /// second call does nothing.
    void stop();

    /// A block of signed 32-bit little-endian samples as the message that carries it: full scale is
    /// -1 to just below 1. Bytes that do not make up a whole sample are left out.
    static dio::endpoint::AudioBuffers messageOf(const QByteArray& block);

protected:
    void run() override;

private:
    void startRecording(const QString& deviceName, int sampleRate);
    void capture(int frames);
    void write(const dio::endpoint::AudioBuffers& message);

    // One of them is null.
    grpc::ServerWriter<dio::endpoint::AudioBuffers>* const writer_;
    grpc::ServerReaderWriter<dio::endpoint::AudioBuffers, dio::endpoint::AudioBuffers>* const
        stream_;

    std::mutex deviceMutex_;  // held by the thread for as long as it captures
    std::unique_ptr<AlsaInputDevice> device;
    std::atomic<bool> running{false};
};

/// What recorders are made with. Constant, so any thread may use it.
class AudioRecorderFactory {
public:
    /// `deviceName`: the ALSA capture device; `sampleRate` in Hz.
    AudioRecorderFactory(QString deviceName, int sampleRate);

    const QString& deviceName() const { return deviceName_; }
    int sampleRate() const { return sampleRate_; }

    /// A recorder that already records.
    std::shared_ptr<AudioRecorder> create(
        grpc::ServerWriter<dio::endpoint::AudioBuffers>* writer) const;
    std::shared_ptr<AudioRecorder> create(
        grpc::ServerReaderWriter<dio::endpoint::AudioBuffers, dio::endpoint::AudioBuffers>* stream)
        const;

private:
    const QString deviceName_;
    const int sampleRate_;
};
