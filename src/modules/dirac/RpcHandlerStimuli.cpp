#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"
#include "modules/dirac/StimulusGenerators.h"
#include "modules/dirac/StimulusPcm.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/player/PlayLogicInterface.h"
#include "sdk/records/VeskUrl.h"
#include "sdk/smt/Sender.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <optional>
#include <span>
#include <thread>

using dio::endpoint::Progress;
using dio::endpoint::StimuliPrepare;
using std::chrono::duration_cast;
using std::chrono::milliseconds;

namespace {

constexpr auto kSocketName = "smtDiracPlayerSocket";
constexpr unsigned kPinkNoiseLength = 262144;  // samples
constexpr std::size_t kChunkSize = 32768;      // bytes of the mono signal
constexpr std::uint32_t kMostChannels = 64;    // of any player
constexpr std::size_t kSubwooferSweepVariant = 1;
constexpr int kPlaybackWait = 1800;  // ms, for a playback that is about to end
constexpr milliseconds kTail{1500};  // what is still on its way after the last chunk
constexpr milliseconds kPollPeriod{50};
constexpr int kAudioSource = 3;  // roles type

/// A stimulus as the player takes it, mono.
struct Signal {
    std::vector<std::int32_t> samples;
    bool repeats{false};  // until it is stopped

    std::size_t size() const { return samples.size() * sizeof(std::int32_t); }
};

std::uint64_t millisecondsSinceEpoch() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(duration_cast<milliseconds>(now).count());
}

void setSubMixDisabled(bool disabled) {
    const auto reply = CMReply<QVariant>::create();
    CMRoot()->invoke(VeskStreamerDefaultPrefixPath() + VeskStreamerAttributesDisableSubMix(),
                     VeskValue::ofBool(disabled), reply);
    reply.waitForFinished();
}

QString streamUrl() {
    VeskUrl url(QStringLiteral("smt://play"));
    url.addQueryItem(VeskStreamerSmtParamSocketAddress(), QLatin1String(kSocketName));
    url.addQueryItem(VeskStreamerSmtParamDisableBuffering(), QStringLiteral("true"));
    return url.toString();
}

VeskRoles playerSource() {
    VeskMetaData metaData;
    metaData.setServiceID(VeskService_Dirac_Id());
    VeskResource resource;
    resource.setMimeType(MimeTypes::Audio::unknown());
    resource.setUri(streamUrl());
    VeskMediaData mediaData;
    mediaData.setMetaData(metaData);
    mediaData.setResources({QVariant(resource)});
    VeskRoles roles;
    roles.setType(kAudioSource);
    roles.setTitle(
        TrString(trExtractContext(__PRETTY_FUNCTION__), QStringLiteral("Dirac - calibration")));
    roles.setMediaData(mediaData);
    return roles;
}

bool isOurs(const VeskPlayLogicData& data) {
    return data.mediaRoles().mediaData().metaData().serviceID() == VeskService_Dirac_Id();
}

bool isPlayingOurSource() {
    const VeskPlayLogicData data = PlayLogicInterface::playerInstance()->data();
    return isOurs(data) && data.state() != VeskPlayLogicState::Stopped;
}

void stopOurSource() {
    PlayLogicInterface* const player = PlayLogicInterface::playerInstance();
    if (isOurs(player->data()))
        player->stop(VeskPlayLogicStopReason::UserRequested);
}

std::vector<float> sweepOf(const dio::endpoint::LogSweepInfo& info) {
    LOG4CPLUS_INFO(logger,
                   "Start_freq: " << info.start_frequency() << " End_freq: " << info.end_frequency()
                                  << " Lenght: " << info.length() << " Silence: " << info.silence()
                                  << " Num_periods: " << info.num_periods()
                                  << " Samplerate: " << info.sample_rate()
                                  << " Fade_out_tail_hz: " << info.fade_out_tail());
    return generateLogSweep(info.start_frequency(), info.end_frequency(), info.length(),
                            info.silence(), info.num_periods(), info.sample_rate(),
                            info.fade_out_tail());
}

/// One step of an end that must be gone through to its end.
template <typename Step>
void attempt(const Step& step) noexcept {
    try {
        step();
    } catch (const std::exception& exception) {
        LOG4CPLUS_ERROR(logger, "A playback could not be ended properly: " << exception.what());
    } catch (...) {
        LOG4CPLUS_ERROR(logger, "A playback could not be ended properly");
    }
}

}  // namespace

/// One playback, from the moment the filter is bypassed until everything is as it was before.
class RpcHandler::Playback {
public:
    Playback(RpcHandler& handler, const grpc::ServerContext& context,
             grpc::ServerWriter<Progress>* progress)
        : handler_(handler), context_(context), progress_(progress) {
        const std::lock_guard<std::mutex> lock(handler_.playbacksMutex_);
        ++handler_.playbacks_;
    }
    /// Goes through every step of the end, whatever becomes of the others.
    ~Playback();
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    /// From here on nothing is mixed in and the filter is off.
    void prepare();
    /// Has the player wait for the stream, and opens it.
    void start();
    /// Plays the signal through one speaker after the other; returns early when it is stopped.
    void play(const Signal& signal, const std::vector<int>& speakers);

private:
    bool playThroughAll(const Signal& signal, const std::vector<int>& speakers);
    bool playThrough(int speaker, const Signal& signal, std::size_t speakers);
    void send(int speaker, std::span<const std::int32_t> samples);
    bool isStopped();
    void finish();
    void restore();

    RpcHandler& handler_;
    const grpc::ServerContext& context_;
    grpc::ServerWriter<Progress>* const progress_;  // may be null

    smt::PcmPayloader payloader_;
    std::optional<smt::Sender> sender_;
    bool isStarted_{false};
    std::uint64_t done_{0};  // speakers that have played
    std::vector<std::int32_t> scaled_;
};

RpcHandler::Playback::~Playback() {
    if (isStarted_)
        finish();
    restore();
}

void RpcHandler::Playback::prepare() {
    const std::lock_guard<std::mutex> lock(handler_.playbacksMutex_);
    setSubMixDisabled(true);
    handler_.bypassFilter();
}

void RpcHandler::Playback::start() {
    isStarted_ = true;
    handler_.filterManager_->playbackLoopActive(true);
    const unsigned reportedStops = handler_.reportedStops_;
    PlayLogicInterface::playerInstance()->play(playerSource(), false);

    sender_.emplace();
    if (!sender_->initializeSender(kSocketName, "", "", 0, smt::TimeSyncProtocol::None,
                                   smt::NanomsgProtocol::Pair))
        LOG4CPLUS_ERROR(logger, "Failed to initalize smt Sender");
    payloader_.setNewFormat(
        static_cast<unsigned>(handler_.serverInfo_->streamingInfo.sample_rate()),
        handler_.serverInfo_->stimuliChannels, audioUtils::PcmFormat::S32);
    sender_->setCurrentPayloader(&payloader_);
    sender_->startNewSequence();
    report(progress_, 0.0F);
    handler_.publishSender(&*sender_);
    handler_.playbackActive_ = true;
    // It may have given up at once, for want of a device, when nobody would have taken notice.
    if (handler_.reportedStops_ != reportedStops && !isPlayingOurSource())
        handler_.stopGenerator();
}

void RpcHandler::Playback::play(const Signal& signal, const std::vector<int>& speakers) {
    while (playThroughAll(signal, speakers) && signal.repeats) {
    }
}

/// False: it was stopped.
bool RpcHandler::Playback::playThroughAll(const Signal& signal, const std::vector<int>& speakers) {
    for (const int speaker : speakers) {
        LOG4CPLUS_DEBUG(logger, "generating stimuli for speaker index " << speaker);
        if (!playThrough(speaker, signal, speakers.size()))
            return false;
        ++done_;
    }
    return true;
}

bool RpcHandler::Playback::playThrough(int speaker, const Signal& signal, std::size_t speakers) {
    constexpr std::size_t kChunk = kChunkSize / sizeof(std::int32_t);
    const std::span<const std::int32_t> all(signal.samples);
    for (std::size_t begin = 0; begin < all.size(); begin += kChunk) {
        const auto chunk = all.subspan(begin, std::min(kChunk, all.size() - begin));
        send(speaker, chunk);
        const std::size_t position = begin * sizeof(std::int32_t) + chunk.size_bytes();
        report(progress_, playbackProgress(position, done_, signal.size(), speakers));
        if (isStopped())
            return false;
    }
    return true;
}

/// The gain is read for each chunk: a client may change it while it listens.
void RpcHandler::Playback::send(int speaker, std::span<const std::int32_t> samples) {
    const auto channels = static_cast<int>(payloader_.channels());
    LOG4CPLUS_TRACE(logger, "monoToSpecificChannel: " << speaker << " -> " << channels
                                                      << ", samples: " << samples.size());
    // The gain first: it leaves the other channels' silence as it is.
    applyGain(samples, *handler_.stimuliGains_.at(static_cast<std::size_t>(speaker)), scaled_);
    const QByteArray frames =
        monoToSpecificChannel(reinterpret_cast<const char*>(scaled_.data()),
                              scaled_.size() * sizeof(std::int32_t), speaker, channels);
    sender_->sendMediaData(
        miscUtils::NoTimeValue, miscUtils::NoTimeValue,
        std::as_bytes(std::span(frames.constData(), static_cast<std::size_t>(frames.size()))));
}

bool RpcHandler::Playback::isStopped() {
    if (!context_.IsCancelled() && handler_.playbackActive_)
        return false;
    handler_.playbackActive_ = false;
    handler_.filterManager_->playbackLoopActive(false);
    return true;
}

void RpcHandler::Playback::finish() {
    std::this_thread::sleep_for(kTail);
    attempt([this] { handler_.filterManager_->playbackLoopActive(false); });
    attempt([this] {
        if (sender_)
            sender_->shutdownSender();
    });
    attempt(stopOurSource);
}

/// Two playbacks may overlap; the last one to end turns the filter on and lets others mix in. The
/// sender must not be in use any more when it goes.
void RpcHandler::Playback::restore() {
    const std::lock_guard<std::mutex> lock(handler_.playbacksMutex_);
    const bool isLast = --handler_.playbacks_ == 0;
    if (isLast)
        attempt([this] { handler_.restoreFilter(); });
    if (sender_)
        handler_.publishSender(nullptr);
    if (isLast)
        attempt([] { setSubMixDisabled(false); });
}

// ---- Filter and sender, shared with the worker's thread ----

void RpcHandler::bypassFilter() {
    const SlotsLock lock = lockSlots();
    isFilterBypassed_ = true;
    filterManager_->disableFilter();
}

void RpcHandler::restoreFilter() {
    const SlotsLock lock = lockSlots();
    isFilterBypassed_ = false;
    filterManager_->enableFilter();
}

bool RpcHandler::isFilterBypassed() {
    const SlotsLock lock = lockSlots();
    return isFilterBypassed_;
}

void RpcHandler::publishSender(smt::Sender* sender) {
    const std::lock_guard<std::mutex> lock(stimulusSenderMutex_);
    stimulusSender_ = sender;
}

/// A stop that ended an earlier playback may be reported, by a busy worker, when the next one
/// already plays; that one goes on.
void RpcHandler::notifyPlayerStateChanged(VeskPlayLogicState::Enum state) {
    DIRAC_SCOPED_TRACE();
    LOG4CPLUS_DEBUG(logger, "notifyPlayerStateChanged: " << VeskPlayLogicState::toString(state));
    if (state != VeskPlayLogicState::Stopped)
        return;
    ++reportedStops_;
    if (playbackActive_ && !isPlayingOurSource())
        stopGenerator();
}

void RpcHandler::stopGenerator() {
    LOG4CPLUS_WARN(logger, "Player stopped while stimuli generation is active, stopping generator");
    const std::lock_guard<std::mutex> lock(stimulusSenderMutex_);
    if (stimulusSender_) {
        LOG4CPLUS_WARN(logger, "Disabling send on stimuli SMT pipeline");
        stimulusSender_->disableSend(true);
    }
    playbackActive_ = false;
}

// ---- The prepared stimulus ----

grpc::Status RpcHandler::PrepareStimuli(grpc::ServerContext*, const StimuliPrepare* request,
                                        dio::endpoint::Void*) {
    DIRAC_SCOPED_TRACE("");
    {
        const std::lock_guard<std::mutex> lock(preparedStimulusMutex_);
        preparedStimulus_ = *request;
    }
    LOG4CPLUS_INFO(logger, "Speaker idx size: " << request->speakers_size() << " Has stimulus: "
                                                << request->has_stimulus() << " Stream recording: "
                                                << request->stream_recording());
    return grpc::Status::OK;
}

StimuliPrepare RpcHandler::preparedStimulus() {
    const std::lock_guard<std::mutex> lock(preparedStimulusMutex_);
    return preparedStimulus_;
}

/// In play order. Without a choice all of them, and the first one again.
std::vector<int> RpcHandler::speakersOf(const StimuliPrepare& prepared) const {
    if (prepared.speakers_size() > 0)
        return {prepared.speakers().begin(), prepared.speakers().end()};
    std::vector<int> speakers(serverInfo_->speakers.size());
    std::iota(speakers.begin(), speakers.end(), 0);
    speakers.push_back(0);
    return speakers;
}

/// A subwoofer hears a sweep in place of noise. Only where the first speaker is one.
bool RpcHandler::isSubwooferFirst(const StimuliPrepare& prepared) const {
    const auto first = static_cast<std::size_t>(speakersOf(prepared).front());
    return serverInfo_->speakers.at(first).type == DeviceInfo::kSubwooferType;
}

/// Of a speaker there is a gain, and a channel that leads to it.
bool RpcHandler::isPlayable(int speaker) const {
    return isStimuliChannel(speaker) &&
           static_cast<std::uint32_t>(speaker) < serverInfo_->stimuliChannels;
}

bool RpcHandler::isVariantInRange(const StimuliPrepare& prepared) const {
    const std::size_t variant = prepared.stimulus().variant();
    if (prepared.stimulus().type() == dio::endpoint::STIMULUS_TYPE_LOG_SWEEP)
        return variant < serverInfo_->logSweepInfos.size();
    return variant < serverInfo_->pinkNoiseInfos.size() || isSubwooferFirst(prepared);
}

grpc::Status RpcHandler::isStimulusValid(const StimuliPrepare& prepared) const {
    const auto type = prepared.stimulus().type();
    if (type != dio::endpoint::STIMULUS_TYPE_PINK_NOISE &&
        type != dio::endpoint::STIMULUS_TYPE_LOG_SWEEP)
        return invalidArgument("Unknown stimuli type.");
    const std::vector<int> speakers = speakersOf(prepared);
    if (!std::all_of(speakers.begin(), speakers.end(), [this](int i) { return isPlayable(i); }))
        return invalidArgument("Speaker index out of range");
    if (!isVariantInRange(prepared))
        return invalidArgument("Stimuli variant out of range");
    if (const auto channels = serverInfo_->stimuliChannels; channels > kMostChannels)
        return {grpc::StatusCode::FAILED_PRECONDITION,
                "The device has " + std::to_string(channels) + " channels for stimuli; " +
                    std::to_string(kMostChannels) + " can be played"};
    return grpc::Status::OK;
}

// ---- Playing ----

bool RpcHandler::hasEnded(const grpc::ServerContext& context) const {
    return context.IsCancelled() || shuttingDown_;
}

/// Waits for the time, ms since the epoch, by the device's clock as it stands now. False: the call
/// ended before.
bool RpcHandler::awaitStart(const grpc::ServerContext& context, std::uint64_t startTime) const {
    using Clock = std::chrono::steady_clock;
    const std::uint64_t now = millisecondsSinceEpoch();
    if (hasEnded(context))
        return false;
    if (startTime <= now)
        return true;
    const std::uint64_t difference = startTime - now;
    const Clock::time_point begin = Clock::now();
    // A client may name a time that no clock can count to.
    for (std::uint64_t waited = 0; waited < difference;
         waited = static_cast<std::uint64_t>(
             duration_cast<milliseconds>(Clock::now() - begin).count())) {
        if (hasEnded(context))
            return false;
        const auto period = static_cast<std::uint64_t>(kPollPeriod.count());
        std::this_thread::sleep_for(milliseconds(std::min(difference - waited, period)));
    }
    LOG4CPLUS_INFO(logger, "Playback is starting in: " << difference << " ms");
    return true;
}

std::vector<float> RpcHandler::generateStimulus(const StimuliPrepare& prepared) const {
    const std::size_t variant = prepared.stimulus().variant();
    if (prepared.stimulus().type() == dio::endpoint::STIMULUS_TYPE_LOG_SWEEP)
        return sweepOf(serverInfo_->logSweepInfos.at(variant));
    LOG4CPLUS_INFO(logger, "Generating pink noise!");
    if (isSubwooferFirst(prepared))
        return sweepOf(serverInfo_->logSweepInfos.at(kSubwooferSweepVariant));
    return generatePinkNoise(serverInfo_->pinkNoiseInfos.at(variant).sample_rate(),
                             kPinkNoiseLength);
}

/// `prepared` is valid. A call that ends while it waits for its start plays nothing.
void RpcHandler::playStimuli(grpc::ServerContext* context,
                             const dio::endpoint::StimuliStart* request,
                             const StimuliPrepare& prepared, grpc::ServerWriter<Progress>* writer) {
    DIRAC_SCOPED_TRACE("");
    Playback playback(*this, *context, writer);
    playback.prepare();
    if (!awaitStart(*context, request->start_time()))
        return;
    Signal signal;
    signal.samples = pcmOf(generateStimulus(prepared));
    // Nothing cannot be repeated.
    signal.repeats = prepared.stimulus().type() == dio::endpoint::STIMULUS_TYPE_PINK_NOISE &&
                     !signal.samples.empty();
    playback.start();
    playback.play(signal, speakersOf(prepared));
}

grpc::Status RpcHandler::StartStimuli(grpc::ServerContext* context,
                                      const dio::endpoint::StimuliStart* request,
                                      grpc::ServerWriter<Progress>* writer) {
    DIRAC_SCOPED_TRACE("");
    std::unique_lock<QMutex> lock(playbackMutex_, milliseconds(kPlaybackWait));
    if (!lock) {
        LOG4CPLUS_WARN(logger, "Stimuli playback already active");
        return {grpc::StatusCode::RESOURCE_EXHAUSTED, "Stimuli playback already active"};
    }
    const StimuliPrepare prepared = preparedStimulus();
    if (grpc::Status status = isStimulusValid(prepared); !status.ok())
        return status;
    playStimuli(context, request, prepared, writer);
    // Before the last word: a client that does not read keeps nobody else out.
    lock.unlock();
    if (context->IsCancelled()) {
        scopedTrace.leaveWith("RETURN: CANCELLED");
        return grpc::Status::CANCELLED;
    }
    scopedTrace.leaveWith("RETURN: OK");
    report(writer, 1.0F);
    return grpc::Status::OK;
}
