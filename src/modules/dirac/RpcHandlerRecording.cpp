#include "modules/dirac/AudioRecorder.h"
#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"

#include <chrono>
#include <thread>

using dio::endpoint::AudioBuffers;

namespace {

constexpr std::chrono::milliseconds kPollPeriod{50};

/// A recorder from its creation until it has stopped.
class Recording {
public:
    explicit Recording(std::shared_ptr<AudioRecorder> recorder) : recorder_(std::move(recorder)) {}
    ~Recording() { recorder_->stop(); }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

private:
    const std::shared_ptr<AudioRecorder> recorder_;
};

}  // namespace

/// The server may be started before the configuration is complete.
grpc::Status RpcHandler::hasMicrophone() const {
    if (!audioRecorderFactory_)
        return {grpc::StatusCode::FAILED_PRECONDITION, "The microphone is not known yet"};
    return grpc::Status::OK;
}

/// Waits as long as another call has the microphone. Without the lock when this call ends before.
std::unique_lock<QMutex> RpcHandler::lockRecording(const grpc::ServerContext& context) {
    std::unique_lock<QMutex> lock(recordingMutex_, std::defer_lock);
    while (!hasEnded(context) && !lock.try_lock_for(kPollPeriod)) {
    }
    return lock;
}

grpc::Status RpcHandler::StartRecordingStimuli(grpc::ServerContext* context,
                                               const dio::endpoint::StimuliStart* request,
                                               grpc::ServerWriter<AudioBuffers>* writer) {
    DIRAC_SCOPED_TRACE("");
    const std::unique_lock<std::mutex> measurement(measurementMutex_, std::try_to_lock);
    if (!measurement) {
        LOG4CPLUS_ERROR(logger, "Measurement is occupied by another caller!");
        return {grpc::StatusCode::RESOURCE_EXHAUSTED, "Measurement session active!"};
    }
    const dio::endpoint::StimuliPrepare prepared = preparedStimulus();
    if (grpc::Status status = isStimulusValid(prepared); !status.ok())
        return status;
    if (grpc::Status status = hasMicrophone(); !status.ok())
        return status;
    if (const auto lock = lockRecording(*context)) {
        const Recording recording(audioRecorderFactory_->create(writer));
        playStimuli(context, request, prepared, nullptr);
    }
    if (context->IsCancelled()) {
        scopedTrace.leaveWith("RETURN: CANCELLED");
        return grpc::Status::CANCELLED;
    }
    scopedTrace.leaveWith("RETURN: OK");
    return grpc::Status::OK;
}

/// Runs until the client cancels it or the server stops.
grpc::Status RpcHandler::StartStreaming(
    grpc::ServerContext* context, grpc::ServerReaderWriter<AudioBuffers, AudioBuffers>* stream) {
    DIRAC_SCOPED_TRACE("");
    if (grpc::Status status = hasMicrophone(); !status.ok())
        return status;
    if (const auto lock = lockRecording(*context)) {
        const Recording recording(audioRecorderFactory_->create(stream));
        while (!hasEnded(*context))
            std::this_thread::sleep_for(kPollPeriod);
    }
    scopedTrace.leaveWith("RETURN: OK");
    return {grpc::StatusCode::OK, ""};
}
