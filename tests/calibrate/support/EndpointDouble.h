#pragma once

#include <endpoint.grpc.pb.h>
#include <grpcpp/server.h>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// A calibration endpoint on a port of its own that keeps what it is told and records each call.
///
/// It stands for a stereo device with two variants, eight slots and nothing in them; change its
/// description before the first call. It can be told to fail, to lack or to hold up a method.
class EndpointDouble final : public dio::endpoint::EndpointDevice::Service {
public:
    EndpointDouble();
    ~EndpointDouble() override;

    /// "127.0.0.1:port".
    const std::string& address() const { return address_; }

    // The description. Constant once the first call was made.
    dio::endpoint::DeviceInfo device;
    std::vector<dio::endpoint::SpeakerInfo> speakers;
    std::vector<std::string> microphones{"Microphone"};
    std::vector<dio::endpoint::FIIRInfo> variants;
    std::vector<dio::endpoint::LogSweepInfo> sweeps;  ///< empty: two at `sampleRate`
    bool keepsCorrectionOff{false};  ///< as a device whose configuration forbids it
    bool keepsSpeakerGain{false};    ///< as a device whose volume is fixed
    float sampleRate{48000};         ///< of the stimuli and of the microphone, Hz

    void setSpeakers(const std::vector<std::string>& names);

    // What the streams do, in place of what a healthy device would; called in a thread of the
    // server. A device that has nothing more to say calls awaitCancelled.
    using Context = grpc::ServerContext;
    template <class Message>
    using Writer = grpc::ServerWriter<Message>;
    template <class Answer, class Request>
    using ReaderWriter = grpc::ServerReaderWriter<Answer, Request>;
    using AudioWriter = grpc::internal::WriterInterface<dio::endpoint::AudioBuffers>;

    std::function<grpc::Status(Context*, Writer<dio::endpoint::Progress>*)> onStartStimuli;
    std::function<grpc::Status(Context*, AudioWriter*)> onRecording;  ///< of both kinds
    std::function<grpc::Status(Context*)> onNotifications;            ///< before the greeting

    /// Waits until the client has cancelled the call, or the device ends.
    static grpc::Status awaitCancelled(Context* context);
    static void send(Writer<dio::endpoint::Progress>* writer, float value);
    /// Sends one message with samples of a microphone.
    static void send(AudioWriter* writer, const std::vector<float>& samples, unsigned mic = 0);

    /// Has the notification stream tell these changes in one message.
    void notify(const std::vector<int>& kinds);
    /// Ends the server at once, and with it every open call.
    void vanish();

    // Faults, by the method's name.
    void lack(const std::string& method);
    /// Fails the call of `method` that has `callsBefore` calls before it.
    void fail(const std::string& method, const grpc::Status& status, int callsBefore = 0);
    /// Holds each call of `method` until release().
    void hold(const std::string& method);
    void awaitHeld();
    void release();

    // What happened.
    struct Design {
        dio::endpoint::SlotInfo info;
        /// Taps by speaker and variant.
        std::map<std::pair<unsigned, unsigned>, std::vector<float>> taps;
        /// The same for the sections in parallel.
        std::map<std::pair<unsigned, unsigned>, std::vector<dio::endpoint::Biquad>> sections;
        /// Alignment by speaker.
        std::map<int, dio::endpoint::GainDelay> alignment;
        /// By section, input, output and variant.
        std::map<std::array<unsigned, 4>, dio::endpoint::IIR> bassFilters;
        std::map<std::array<unsigned, 4>, dio::endpoint::DelayGain> bassDelays;
    };
    std::map<int, Design> stored() const;
    void store(int slot, const std::string& name, std::int64_t creationTime);
    int activeSlot() const;
    void setActive(int slot);
    dio::endpoint::OperationMode mode() const;
    void setMode(bool gain, bool delay, bool filtering);
    struct Gains {
        double speaker{-20};
        double microphone{0};
        std::map<int, double> stimuli;  ///< by speaker; those that are missing were never set
    };
    Gains gains() const;
    void setGains(const Gains& gains);
    dio::endpoint::StimuliPrepare prepared() const;
    std::uint64_t startTime() const;
    /// Waits until the client has ended so many streams; false when it does not.
    bool awaitCancelledCalls(int count);
    std::vector<std::string> calls() const;
    int callsOf(const std::string& method) const;
    /// The last call of one of these methods; empty: there was none.
    std::string lastCallOf(const std::set<std::string>& methods) const;

private:
    using Void = dio::endpoint::Void;
    using Index = dio::endpoint::Index;
    using VariantId = dio::endpoint::Variant;

    grpc::Status GetDeviceInfo(Context*, const Void*, dio::endpoint::DeviceInfo*) override;
    grpc::Status GetMicInfo(Context*, const Index*, dio::endpoint::MicInfo*) override;
    grpc::Status GetSpeakerInfo(Context*, const Index*, dio::endpoint::SpeakerInfo*) override;
    grpc::Status GetStimuliInfo(Context*, const Void*, dio::endpoint::StimuliInfo*) override;
    grpc::Status GetPinkNoiseInfo(Context*, const VariantId*,
                                  dio::endpoint::PinkNoiseInfo*) override;
    grpc::Status GetLogSweepInfo(Context*, const VariantId*, dio::endpoint::LogSweepInfo*) override;
    grpc::Status GetSlotInfo(Context*, const Index*, dio::endpoint::SlotInfo*) override;
    grpc::Status GetSectionInfo(Context*, const Index*, dio::endpoint::SectionInfo*) override;
    grpc::Status GetCellInfo(Context*, const dio::endpoint::CellIndex*,
                             dio::endpoint::CellInfo*) override;
    grpc::Status GetFIIRInfo(Context*, const VariantId*, dio::endpoint::FIIRInfo*) override;
    grpc::Status GetIIRInfo(Context*, const VariantId*, dio::endpoint::IIRInfo*) override;
    grpc::Status GetDelayGainInfo(Context*, const VariantId*,
                                  dio::endpoint::DelayGainInfo*) override;
    grpc::Status GetSpeakerGainInfo(Context*, const Void*, dio::endpoint::GainInfo*) override;
    grpc::Status GetMicGainInfo(Context*, const Void*, dio::endpoint::GainInfo*) override;
    grpc::Status GetStimuliGainInfo(Context*, const Void*, dio::endpoint::GainInfo*) override;
    grpc::Status GetSpeakerGain(Context*, const Void*, dio::endpoint::Gain*) override;
    grpc::Status SetSpeakerGain(Context*, const dio::endpoint::Gain*, Void*) override;
    grpc::Status GetMicGain(Context*, const Void*, dio::endpoint::Gain*) override;
    grpc::Status SetMicGain(Context*, const dio::endpoint::Gain*, Void*) override;
    grpc::Status GetStimuliGain(Context*, const Index*, dio::endpoint::StimuliGain*) override;
    grpc::Status SetStimuliGain(Context*, const dio::endpoint::StimuliGain*, Void*) override;
    grpc::Status PrepareStimuli(Context*, const dio::endpoint::StimuliPrepare*, Void*) override;
    grpc::Status StartStimuli(Context*, const dio::endpoint::StimuliStart*,
                              Writer<dio::endpoint::Progress>*) override;
    grpc::Status StartRecordingStimuli(Context*, const dio::endpoint::StimuliStart*,
                                       Writer<dio::endpoint::AudioBuffers>*) override;
    grpc::Status StartStreaming(
        Context*, ReaderWriter<dio::endpoint::AudioBuffers, dio::endpoint::AudioBuffers>*) override;
    grpc::Status Notifications(Context*,
                               ReaderWriter<dio::endpoint::NotificationInfo,
                                            dio::endpoint::ClientNotificationInfo>*) override;
    grpc::Status GetStreamingInfo(Context*, const Void*, dio::endpoint::StreamingInfo*) override;
    grpc::Status GetOperationMode(Context*, const Void*, dio::endpoint::OperationMode*) override;
    grpc::Status SetOperationMode(Context*, const dio::endpoint::OperationMode*, Void*) override;
    grpc::Status GetActiveSlot(Context*, const Void*, Index*) override;
    grpc::Status SetActiveSlot(Context*, const Index*, Void*) override;
    grpc::Status BeginFilterTransfer(Context*, const dio::endpoint::SlotInfo*, Void*) override;
    grpc::Status SetTransferCell(Context*, const dio::endpoint::CellIndex*, Void*) override;
    grpc::Status SetCellFIIR(Context*, const dio::endpoint::FIIR*, Void*) override;
    grpc::Status SetCellIIR(Context*, const dio::endpoint::IIR*, Void*) override;
    grpc::Status SetCellDelayGain(Context*, const dio::endpoint::DelayGain*, Void*) override;
    grpc::Status SetInputGainDelay(Context*, const dio::endpoint::GainDelay*, Void*) override;
    grpc::Status EndFilterTransfer(Context*, const Index*,
                                   Writer<dio::endpoint::Progress>*) override;
    grpc::Status UpdateSlotInfo(Context*, const dio::endpoint::SlotInfoUpdate*, Void*) override;
    grpc::Status DeleteSlot(Context*, const Index*, Void*) override;

    grpc::Status played(Context* context, Writer<dio::endpoint::Progress>* writer);
    grpc::Status recorded(Context* context, AudioWriter* writer, bool untilCancelled);
    grpc::Status ended(Context* context, const grpc::Status& status);

    std::pair<unsigned, unsigned> dimensions(unsigned section) const;

    /// Records the call, holds it up and tells how it ends, if not by itself.
    grpc::Status enter(const std::string& method);

    struct Fault {
        grpc::Status status;
        int callsBefore;
    };

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> calls_;
    std::set<std::string> lacking_;
    std::set<std::string> held_;
    bool holding_{false};
    std::map<std::string, Fault> faults_;
    std::map<int, Design> stored_;
    Design transfer_;
    dio::endpoint::CellIndex transferCell_;
    int activeSlot_{-1};
    dio::endpoint::OperationMode mode_;
    Gains gains_;
    dio::endpoint::StimuliPrepare prepared_;
    std::uint64_t startTime_{0};
    int cancelledCalls_{0};
    std::vector<std::vector<int>> notifications_;
    std::mutex notificationClient_;

    std::string address_;
    std::unique_ptr<grpc::Server> server_;
};
