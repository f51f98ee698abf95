#include "modules/dirac/AudioRecorder.h"

#include "modules/dirac/ScopedTrace.h"
#include "sdk/alsa/AlsaInputDevice.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/records/VeskPowerManagerRecords.h"

#include <QtEndian>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {

constexpr unsigned kChannels = 1;
constexpr int kPeriod = 10;                       // ms
constexpr int kBuffer = 100;                      // ms
constexpr int kBlockSize = 512;                   // bytes
constexpr unsigned long kMicrophoneWait = 10000;  // ms
constexpr float kScale = 4.656613e-10F;           // 2^-31
// The largest integers would be rounded up to full scale.
constexpr float kLargest = 0.99999994F;

int quotient(int dividend, int divisor) {
    return divisor == 0 ? 0 : dividend / divisor;
}

void requestMicrophone(VeskPowerModuleActions::Enum action, const CMReply<QVariant>& reply) {
    VeskPowerManagerResourceRequest request;
    request.setModuleName(VeskDiracName());
    request.setResource(VeskPowerManagerResources::Microphone);
    request.setAction(action);
    CMRoot()->invoke(VeskPowerManagerResourceRequestPath(), request, reply);
}

void acquireMicrophone() {
    const auto reply = CMReply<QVariant>::create();
    requestMicrophone(VeskPowerModuleActions::Acquire, reply);
    if (!reply.waitForFinished(kMicrophoneWait)) {
        LOG4CPLUS_ERROR(logger, "Acquisition of the microphone resource timed out");
        return;
    }
    const CMError error = reply.error();
    if (error.isError())
        LOG4CPLUS_ERROR(logger,
                        "Failed to get Microphone resource: " << error.text().toStdString());
}

}  // namespace

AudioRecorder::AudioRecorder(const QString& deviceName, int sampleRate,
                             grpc::ServerWriter<dio::endpoint::AudioBuffers>* writer)
    : writer_(writer), stream_(nullptr) {
    DIRAC_SCOPED_TRACE();
    startRecording(deviceName, sampleRate);
}

AudioRecorder::AudioRecorder(
    const QString& deviceName, int sampleRate,
    grpc::ServerReaderWriter<dio::endpoint::AudioBuffers, dio::endpoint::AudioBuffers>* stream)
    : writer_(nullptr), stream_(stream) {
    DIRAC_SCOPED_TRACE();
    startRecording(deviceName, sampleRate);
}

AudioRecorder::~AudioRecorder() {
    stop();
}

void AudioRecorder::startRecording(const QString& deviceName, int sampleRate) {
    DIRAC_SCOPED_TRACE();
    acquireMicrophone();
    device = std::make_unique<AlsaInputDevice>(deviceName, sampleRate, kChannels,
                                               SND_PCM_FORMAT_S32_LE, kPeriod, kBuffer);
    if (!device->open())
        return;
    running = true;
    start(QThread::InheritPriority);
}

void AudioRecorder::stop() {
    DIRAC_SCOPED_TRACE();
    if (!device)
        return;
    if (running.exchange(false))
        wait();
    {
        const std::lock_guard<std::mutex> lock(deviceMutex_);
        device.reset();
    }
    requestMicrophone(VeskPowerModuleActions::Release, {});
}

void AudioRecorder::run() {
    DIRAC_SCOPED_TRACE();
    const std::lock_guard<std::mutex> lock(deviceMutex_);
    capture(quotient(quotient(kBlockSize, device->bytesPerSample()), device->channels()));
}

void AudioRecorder::capture(int frames) {
    QByteArray block;
    while (running) {
        if (!device->read(block, frames)) {
            LOG4CPLUS_ERROR(logger, "Failed to read data from input device");
            return;
        }
        write(messageOf(block));
    }
}

dio::endpoint::AudioBuffers AudioRecorder::messageOf(const QByteArray& block) {
    dio::endpoint::AudioBuffers message;
    dio::endpoint::AudioBuffer& buffer = *message.add_buffers();
    const std::size_t count = static_cast<std::size_t>(block.size()) / sizeof(qint32);
    buffer.mutable_samples()->Reserve(static_cast<int>(count));
    for (std::size_t i = 0; i < count; ++i) {
        const auto sample = qFromLittleEndian<qint32>(block.constData() + i * sizeof(qint32));
        buffer.add_samples(std::min(static_cast<float>(sample) * kScale, kLargest));
    }
    buffer.set_mic(0);
    return message;
}

/// A broken stream does not end the capture; whoever made the recorder notices and stops it.
void AudioRecorder::write(const dio::endpoint::AudioBuffers& message) {
    if (writer_)
        writer_->Write(message);
    else
        stream_->Write(message);
}

AudioRecorderFactory::AudioRecorderFactory(QString deviceName, int sampleRate)
    : deviceName_(std::move(deviceName)), sampleRate_(sampleRate) {
}

std::shared_ptr<AudioRecorder> AudioRecorderFactory::create(
    grpc::ServerWriter<dio::endpoint::AudioBuffers>* writer) const {
    return std::make_shared<AudioRecorder>(deviceName_, sampleRate_, writer);
}

std::shared_ptr<AudioRecorder> AudioRecorderFactory::create(
    grpc::ServerReaderWriter<dio::endpoint::AudioBuffers, dio::endpoint::AudioBuffers>* stream)
    const {
    return std::make_shared<AudioRecorder>(deviceName_, sampleRate_, stream);
}
