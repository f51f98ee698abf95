#pragma once

#include "modules/dirac/DeviceInfo.h"
#include "modules/dirac/ServerInfo.h"
#include "modules/dirac/common/FilterManager.h"
#include "sdk/records/VeskPlayerRecords.h"

#include <QMutex>
#include <endpoint.grpc.pb.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

class AudioRecorderFactory;
class Dirac;

namespace smt {
class Sender;
}

/// The calibration endpoint: one object per start of the server, which keeps it alive.
///
/// The server's threads call the handlers, several at once; the worker's thread constructs it and
/// calls what is marked so. Topology answers are fixed at construction and need no lock. Slots, the
/// filter transfer and the processing modes are guarded by one mutex, so that the calls of several
/// clients and the worker follow one another. It is never held while a stream runs or a reply is
/// awaited.
///
/// A rejected argument is answered by INVALID_ARGUMENT and a fixed text.
class RpcHandler final : public dio::endpoint::EndpointDevice::Service {
public:
    using SlotsLock = std::unique_lock<std::recursive_mutex>;

    /// `worker` and `factory` are not owned; `factory` may be null.
    RpcHandler(const DeviceInfo& deviceInfo, Dirac* worker, AudioRecorderFactory* factory);
    /// The server has ended all streams before.
    ~RpcHandler() override;

    // ---- For the worker's thread ----

    /// While the lock is held, no client's call changes the slots or their settings.
    SlotsLock lockSlots();
    /// A slot was chosen on the device; -1 for none.
    void notifyActiveSlot(int slot);
    /// The player changed its state while, or after, the module's own source played.
    void notifyPlayerStateChanged(VeskPlayLogicState::Enum state);
    /// Whether a stimulus plays, or is about to: the runtime slots keep both stages off.
    bool isFilterBypassed();

    // ---- Topology (RpcHandlerTopology.cpp) ----

    grpc::Status GetDeviceInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                               dio::endpoint::DeviceInfo*) override;
    grpc::Status GetMicInfo(grpc::ServerContext*, const dio::endpoint::Index*,
                            dio::endpoint::MicInfo*) override;
    grpc::Status GetSpeakerInfo(grpc::ServerContext*, const dio::endpoint::Index*,
                                dio::endpoint::SpeakerInfo*) override;
    grpc::Status GetStimuliInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                dio::endpoint::StimuliInfo*) override;
    grpc::Status GetPinkNoiseInfo(grpc::ServerContext*, const dio::endpoint::Variant*,
                                  dio::endpoint::PinkNoiseInfo*) override;
    grpc::Status GetLogSweepInfo(grpc::ServerContext*, const dio::endpoint::Variant*,
                                 dio::endpoint::LogSweepInfo*) override;
    grpc::Status GetSectionInfo(grpc::ServerContext*, const dio::endpoint::Index*,
                                dio::endpoint::SectionInfo*) override;
    grpc::Status GetFilterInputInfo(grpc::ServerContext*, const dio::endpoint::Index*,
                                    dio::endpoint::FilterChannelInfo*) override;
    grpc::Status GetCellInfo(grpc::ServerContext*, const dio::endpoint::CellIndex*,
                             dio::endpoint::CellInfo*) override;
    grpc::Status GetIIRInfo(grpc::ServerContext*, const dio::endpoint::Variant*,
                            dio::endpoint::IIRInfo*) override;
    grpc::Status GetFIIRInfo(grpc::ServerContext*, const dio::endpoint::Variant*,
                             dio::endpoint::FIIRInfo*) override;
    grpc::Status GetDelayGainInfo(grpc::ServerContext*, const dio::endpoint::Variant*,
                                  dio::endpoint::DelayGainInfo*) override;
    grpc::Status GetStreamingInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                  dio::endpoint::StreamingInfo*) override;

    // ---- Gains and operation mode (RpcHandlerGains.cpp) ----

    grpc::Status GetSpeakerGainInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                    dio::endpoint::GainInfo*) override;
    grpc::Status GetMicGainInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                dio::endpoint::GainInfo*) override;
    grpc::Status GetStimuliGainInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                    dio::endpoint::GainInfo*) override;
    grpc::Status GetSpeakerGain(grpc::ServerContext*, const dio::endpoint::Void*,
                                dio::endpoint::Gain*) override;
    grpc::Status GetMicGain(grpc::ServerContext*, const dio::endpoint::Void*,
                            dio::endpoint::Gain*) override;
    grpc::Status GetStimuliGain(grpc::ServerContext*, const dio::endpoint::Index*,
                                dio::endpoint::StimuliGain*) override;
    grpc::Status SetSpeakerGain(grpc::ServerContext*, const dio::endpoint::Gain*,
                                dio::endpoint::Void*) override;
    grpc::Status SetMicGain(grpc::ServerContext*, const dio::endpoint::Gain*,
                            dio::endpoint::Void*) override;
    grpc::Status SetStimuliGain(grpc::ServerContext*, const dio::endpoint::StimuliGain*,
                                dio::endpoint::Void*) override;
    grpc::Status GetOperationMode(grpc::ServerContext*, const dio::endpoint::Void*,
                                  dio::endpoint::OperationMode*) override;
    grpc::Status SetOperationMode(grpc::ServerContext*, const dio::endpoint::OperationMode*,
                                  dio::endpoint::Void*) override;

    // ---- Stimuli (RpcHandlerStimuli.cpp) ----

    grpc::Status PrepareStimuli(grpc::ServerContext*, const dio::endpoint::StimuliPrepare*,
                                dio::endpoint::Void*) override;
    grpc::Status StartStimuli(grpc::ServerContext*, const dio::endpoint::StimuliStart*,
                              grpc::ServerWriter<dio::endpoint::Progress>*) override;

    // ---- Recording (RpcHandlerRecording.cpp) ----

    grpc::Status StartRecordingStimuli(grpc::ServerContext*, const dio::endpoint::StimuliStart*,
                                       grpc::ServerWriter<dio::endpoint::AudioBuffers>*) override;
    grpc::Status StartStreaming(grpc::ServerContext*,
                                grpc::ServerReaderWriter<dio::endpoint::AudioBuffers,
                                                         dio::endpoint::AudioBuffers>*) override;

    // ---- Slots (RpcHandlerSlots.cpp) ----

    grpc::Status GetSlotInfo(grpc::ServerContext*, const dio::endpoint::Index*,
                             dio::endpoint::SlotInfo*) override;
    grpc::Status GetActiveSlot(grpc::ServerContext*, const dio::endpoint::Void*,
                               dio::endpoint::Index*) override;
    grpc::Status SetActiveSlot(grpc::ServerContext*, const dio::endpoint::Index*,
                               dio::endpoint::Void*) override;
    grpc::Status UpdateSlotInfo(grpc::ServerContext*, const dio::endpoint::SlotInfoUpdate*,
                                dio::endpoint::Void*) override;
    grpc::Status DeleteSlot(grpc::ServerContext*, const dio::endpoint::Index*,
                            dio::endpoint::Void*) override;

    // ---- Filter transfer (RpcHandlerTransfer.cpp) ----

    grpc::Status BeginFilterTransfer(grpc::ServerContext*, const dio::endpoint::SlotInfo*,
                                     dio::endpoint::Void*) override;
    grpc::Status SetTransferCell(grpc::ServerContext*, const dio::endpoint::CellIndex*,
                                 dio::endpoint::Void*) override;
    grpc::Status SetCellFIIR(grpc::ServerContext*, const dio::endpoint::FIIR*,
                             dio::endpoint::Void*) override;
    grpc::Status SetCellIIR(grpc::ServerContext*, const dio::endpoint::IIR*,
                            dio::endpoint::Void*) override;
    grpc::Status SetCellDelayGain(grpc::ServerContext*, const dio::endpoint::DelayGain*,
                                  dio::endpoint::Void*) override;
    grpc::Status SetInputGainDelay(grpc::ServerContext*, const dio::endpoint::GainDelay*,
                                   dio::endpoint::Void*) override;
    grpc::Status EndFilterTransfer(grpc::ServerContext*, const dio::endpoint::Index*,
                                   grpc::ServerWriter<dio::endpoint::Progress>*) override;

    // ---- Notifications (RpcHandlerNotifications.cpp) ----

    grpc::Status Notifications(
        grpc::ServerContext*,
        grpc::ServerReaderWriter<dio::endpoint::NotificationInfo,
                                 dio::endpoint::ClientNotificationInfo>*) override;

    // ---- Pure ----

    /// Brings `value` (dB) into the range, the lower limit first, and converts it to a linear gain.
    static float decibelToLinearClamped(double value, double upper, double lower);

private:
    /// The design that a client is transferring.
    struct FilterTransfer {
        dio::endpoint::SlotInfo slot;
        // One element for each variant.
        std::vector<processing::FilterCoefficients> coefficients;
        std::vector<processing::BassControlFilterCoefficients> bassControl;
        bool hasBassControl{false};
        // Received so far, of all cells.
        std::size_t taps{0};
        std::size_t biquads{0};
    };

    class Playback;

    static grpc::Status invalidArgument(const std::string& message);
    /// `writer` may be null.
    static void report(grpc::ServerWriter<dio::endpoint::Progress>* writer, float value);

    void mapSpeakersToInputs();
    std::tuple<unsigned char, unsigned char> getSectionDimensions(std::uint8_t section) const;
    grpc::Status isCellIndexValid(const dio::endpoint::CellIndex* cell) const;
    void listVariants(dio::endpoint::CellInfo& cell) const;

    bool isStimuliChannel(int channel) const;

    dio::endpoint::StimuliPrepare preparedStimulus();
    std::vector<int> speakersOf(const dio::endpoint::StimuliPrepare& prepared) const;
    bool isSubwooferFirst(const dio::endpoint::StimuliPrepare& prepared) const;
    bool isPlayable(int speaker) const;
    bool isVariantInRange(const dio::endpoint::StimuliPrepare& prepared) const;
    grpc::Status isStimulusValid(const dio::endpoint::StimuliPrepare& prepared) const;
    bool hasEnded(const grpc::ServerContext& context) const;
    bool awaitStart(const grpc::ServerContext& context, std::uint64_t startTime) const;
    std::vector<float> generateStimulus(const dio::endpoint::StimuliPrepare& prepared) const;
    void playStimuli(grpc::ServerContext* context, const dio::endpoint::StimuliStart* request,
                     const dio::endpoint::StimuliPrepare& prepared,
                     grpc::ServerWriter<dio::endpoint::Progress>* writer);
    void bypassFilter();
    void restoreFilter();
    void publishSender(smt::Sender* sender);
    void stopGenerator();

    grpc::Status hasMicrophone() const;
    std::unique_lock<QMutex> lockRecording(const grpc::ServerContext& context);

    bool isSlot(int index) const;
    grpc::Status isFilterTransferValid(std::shared_ptr<dio::endpoint::CellIndex> cell,
                                       int variant) const;
    grpc::Status isTransferOpen() const;
    grpc::Status reserve(int taps, int biquads);
    grpc::Status takeTransferToEnd(int slot, std::shared_ptr<FilterTransfer>& transfer);
    static grpc::Status checkBassControl(const FilterTransfer& transfer);
    void createSlot(const FilterTransfer& transfer);
    void storeDesign(const FilterTransfer& transfer);
    void closeTransfer(const std::shared_ptr<FilterTransfer>& transfer);

    void showClient(bool connected);
    dio::endpoint::NotificationInfo takeChanges();

    // Constant after construction.
    const std::shared_ptr<ServerInfo> serverInfo_;  // its microphone gain is atomic
    const int numberOfFiirVariants_;
    const std::shared_ptr<processing::FilterManager> filterManager_;  // guarded by slotsMutex_
    std::map<std::uint8_t, std::uint8_t> speakerToInput_;
    std::map<std::uint8_t, std::uint8_t> inputToSpeaker_;
    std::vector<std::shared_ptr<std::atomic<float>>> stimuliGains_;  // linear, one a speaker
    Dirac* const worker_;
    AudioRecorderFactory* const audioRecorderFactory_;

    std::recursive_mutex slotsMutex_;
    // Guarded by slotsMutex_. Null: no cell has been set, no transfer is open.
    std::shared_ptr<dio::endpoint::CellIndex> transferCell_;
    std::shared_ptr<FilterTransfer> transfer_;

    bool isFilterBypassed_{false};  // guarded by slotsMutex_

    std::mutex preparedStimulusMutex_;
    dio::endpoint::StimuliPrepare preparedStimulus_;  // guarded by the mutex

    // A playback begins and ends with this mutex, in which it waits for the streamer.
    std::mutex playbacksMutex_;
    int playbacks_{0};      // guarded by playbacksMutex_
    QMutex playbackMutex_;  // held by StartStimuli while it plays
    // Set when a playback starts. A normal end leaves it set, until the player stops.
    std::atomic<bool> playbackActive_{false};
    std::atomic<unsigned> reportedStops_{0};  // how often the player has stopped our source
    std::mutex stimulusSenderMutex_;
    smt::Sender* stimulusSender_{nullptr};  // guarded by the mutex; null unless a stimulus plays

    std::mutex measurementMutex_;  // held by StartRecordingStimuli
    QMutex recordingMutex_;        // held while the microphone is captured

    std::atomic<bool> shuttingDown_{false};
    std::mutex notificationClientMutex_;  // held by the one connected notification stream
    std::mutex clientStatusMutex_;        // held while the platform is told of a client
    int connectedClients_{0};             // guarded by clientStatusMutex_

    // What clients have last asked for or been answered.
    std::atomic<int> activeSlot_;
    std::atomic<bool> filteringEnabled_;

    // What clients have been notified of. Outlives a notification stream: the next one is told what
    // changed since.
    std::atomic<double> notifiedSpeakerGain_;  // dB
    std::atomic<int> lastNotifiedSlot_{-2};    // no slot has it, so the first pass reports
    std::atomic<bool> notifiedFilterState_{false};
};
