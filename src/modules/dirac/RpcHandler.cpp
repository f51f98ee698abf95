#include "modules/dirac/RpcHandler.h"

#include "modules/dirac/Dirac.h"
#include "modules/dirac/ScopedTrace.h"

#include <algorithm>
#include <limits>

RpcHandler::RpcHandler(const DeviceInfo& deviceInfo, Dirac* worker, AudioRecorderFactory* factory)
    : serverInfo_(std::make_shared<ServerInfo>(deviceInfo)),
      numberOfFiirVariants_(static_cast<int>(serverInfo_->fiirInfos.size())),
      filterManager_(
          std::make_shared<processing::FilterManager>(static_cast<int>(serverInfo_->numberOfSlots),
                                                      numberOfFiirVariants_, serverInfo_->ipcKey)),
      worker_(worker),
      audioRecorderFactory_(factory),
      activeSlot_(filterManager_->getActiveSlot()),
      filteringEnabled_(worker->getFilteringEnabled()),
      notifiedSpeakerGain_(worker->getAttenuation()) {
    DIRAC_SCOPED_TRACE();
    for (std::size_t i = 0; i < serverInfo_->speakers.size(); ++i)
        stimuliGains_.push_back(std::make_shared<std::atomic<float>>(0.0F));
    mapSpeakersToInputs();
}

RpcHandler::~RpcHandler() {
    shuttingDown_ = true;
}

/// Indices are 8-bit: speakers above that have no input.
void RpcHandler::mapSpeakersToInputs() {
    constexpr std::size_t kMaxInputs = std::numeric_limits<std::uint8_t>::max() + 1U;
    for (std::size_t i = 0; i < std::min(serverInfo_->speakers.size(), kMaxInputs); ++i) {
        const auto speaker = static_cast<std::uint8_t>(i);
        const auto input = static_cast<std::uint8_t>(inputToSpeaker_.size());
        speakerToInput_[speaker] = input;
        inputToSpeaker_[input] = speaker;
        LOG4CPLUS_DEBUG(logger, "Mapping speaker " << unsigned{speaker} << " to input channel "
                                                   << unsigned{input});
    }
}

RpcHandler::SlotsLock RpcHandler::lockSlots() {
    return SlotsLock(slotsMutex_);
}

grpc::Status RpcHandler::invalidArgument(const std::string& message) {
    return {grpc::StatusCode::INVALID_ARGUMENT, message};
}

/// Whether the client still reads is not looked at: its end shows as a cancellation.
void RpcHandler::report(grpc::ServerWriter<dio::endpoint::Progress>* writer, float value) {
    if (!writer)
        return;
    dio::endpoint::Progress progress;
    progress.set_value(value);
    writer->Write(progress);
}
