#include "modules/dirac/Dirac.h"
#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"

#include <cmath>

namespace {

/// Minus infinity for a gain of 0.
double decibels(float linear) {
    return 20.0 * static_cast<double>(std::log10(linear));
}

float linearInRange(double gain, const dio::endpoint::GainInfo& range) {
    return RpcHandler::decibelToLinearClamped(gain, range.maximum(), range.minimum());
}

}  // namespace

/// A gain that is not a number becomes the lower limit.
float RpcHandler::decibelToLinearClamped(double value, double upper, double lower) {
    const double raised = value > lower ? value : lower;
    const double clamped = raised < upper ? raised : upper;
    return std::pow(10.0F, static_cast<float>(clamped) / 20.0F);
}

grpc::Status RpcHandler::GetSpeakerGainInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                            dio::endpoint::GainInfo* response) {
    DIRAC_SCOPED_TRACE("");
    response->CopyFrom(serverInfo_->speakerGainInfo);
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetMicGainInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                        dio::endpoint::GainInfo* response) {
    DIRAC_SCOPED_TRACE("");
    response->CopyFrom(serverInfo_->micGainInfo);
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetStimuliGainInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                            dio::endpoint::GainInfo* response) {
    DIRAC_SCOPED_TRACE("");
    response->CopyFrom(serverInfo_->stimuliGainInfo);
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetSpeakerGain(grpc::ServerContext*, const dio::endpoint::Void*,
                                        dio::endpoint::Gain* response) {
    DIRAC_SCOPED_TRACE("");
    response->set_gain(worker_->getAttenuation());
    return grpc::Status::OK;
}

/// The notification stream does not report the client's own change back.
grpc::Status RpcHandler::SetSpeakerGain(grpc::ServerContext*, const dio::endpoint::Gain* request,
                                        dio::endpoint::Void*) {
    DIRAC_SCOPED_TRACE("Set speaker gain to " << request->gain() << " dB");
    const SlotsLock lock = lockSlots();
    worker_->setAttenuation(request->gain());
    notifiedSpeakerGain_ = request->gain();
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetMicGain(grpc::ServerContext*, const dio::endpoint::Void*,
                                    dio::endpoint::Gain* response) {
    DIRAC_SCOPED_TRACE("");
    response->set_gain(decibels(serverInfo_->micGain));
    return grpc::Status::OK;
}

grpc::Status RpcHandler::SetMicGain(grpc::ServerContext*, const dio::endpoint::Gain* request,
                                    dio::endpoint::Void*) {
    DIRAC_SCOPED_TRACE("Set microphone gain to " << request->gain() << " dB");
    serverInfo_->micGain = linearInRange(request->gain(), serverInfo_->micGainInfo);
    return grpc::Status::OK;
}

bool RpcHandler::isStimuliChannel(int channel) const {
    return channel >= 0 && static_cast<std::size_t>(channel) < stimuliGains_.size();
}

grpc::Status RpcHandler::GetStimuliGain(grpc::ServerContext*, const dio::endpoint::Index* request,
                                        dio::endpoint::StimuliGain* response) {
    const int channel = request->value();
    DIRAC_SCOPED_TRACE("Index " << channel);
    if (!isStimuliChannel(channel))
        return invalidArgument("Index is out of bounds.");
    response->set_gain(decibels(*stimuliGains_[static_cast<std::size_t>(channel)]));
    return grpc::Status::OK;
}

/// The worker is given the gain as it came, outside of the range too.
grpc::Status RpcHandler::SetStimuliGain(grpc::ServerContext*,
                                        const dio::endpoint::StimuliGain* request,
                                        dio::endpoint::Void*) {
    const int channel = request->channel();
    DIRAC_SCOPED_TRACE("Set stimuli gain channel = " << channel << " Gain = " << request->gain());
    if (!isStimuliChannel(channel))
        return invalidArgument("Index is out of bounds.");
    *stimuliGains_[static_cast<std::size_t>(channel)] =
        linearInRange(request->gain(), serverInfo_->stimuliGainInfo);
    worker_->setSpeakerGain(channel, request->gain());
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetOperationMode(grpc::ServerContext*, const dio::endpoint::Void*,
                                          dio::endpoint::OperationMode* response) {
    const SlotsLock lock = lockSlots();
    const bool delayAndGain = filterManager_->isDelayAndGainProcessingEnabled();
    const bool filtering = worker_->getFilteringEnabled();
    DIRAC_SCOPED_TRACE("Delay and Gain procesing enabled: "
                       << delayAndGain << " Filter procesing enabled: " << filtering);
    response->set_gain(delayAndGain);
    response->set_delay(delayAndGain);
    response->set_filtering(filtering);
    return grpc::Status::OK;
}

/// Gain and delay are one stage: it is on when both are asked for.
grpc::Status RpcHandler::SetOperationMode(grpc::ServerContext*,
                                          const dio::endpoint::OperationMode* request,
                                          dio::endpoint::Void*) {
    DIRAC_SCOPED_TRACE("Gain: " << request->gain() << " Delay: " << request->delay()
                                << " Filtering: " << request->filtering());
    const SlotsLock lock = lockSlots();
    filterManager_->enableProcessing(request->gain() && request->delay(), request->filtering());
    filteringEnabled_ = request->filtering();
    return grpc::Status::OK;
}
