#pragma once

#include <endpoint.grpc.pb.h>
#include <grpcpp/server.h>

#include <condition_variable>
#include <cstdint>
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
    bool keepsCorrectionOff{false};  ///< as a device whose configuration forbids it

    void setSpeakers(const std::vector<std::string>& names);

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
    };
    std::map<int, Design> stored() const;
    void store(int slot, const std::string& name, std::int64_t creationTime);
    int activeSlot() const;
    void setActive(int slot);
    dio::endpoint::OperationMode mode() const;
    void setMode(bool gain, bool delay, bool filtering);
    std::vector<std::string> calls() const;
    int callsOf(const std::string& method) const;

private:
    using Context = grpc::ServerContext;
    template <class Message>
    using Writer = grpc::ServerWriter<Message>;
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
    grpc::Status GetStreamingInfo(Context*, const Void*, dio::endpoint::StreamingInfo*) override;
    grpc::Status GetOperationMode(Context*, const Void*, dio::endpoint::OperationMode*) override;
    grpc::Status SetOperationMode(Context*, const dio::endpoint::OperationMode*, Void*) override;
    grpc::Status GetActiveSlot(Context*, const Void*, Index*) override;
    grpc::Status SetActiveSlot(Context*, const Index*, Void*) override;
    grpc::Status BeginFilterTransfer(Context*, const dio::endpoint::SlotInfo*, Void*) override;
    grpc::Status SetTransferCell(Context*, const dio::endpoint::CellIndex*, Void*) override;
    grpc::Status SetCellFIIR(Context*, const dio::endpoint::FIIR*, Void*) override;
    grpc::Status EndFilterTransfer(Context*, const Index*,
                                   Writer<dio::endpoint::Progress>*) override;
    grpc::Status UpdateSlotInfo(Context*, const dio::endpoint::SlotInfoUpdate*, Void*) override;
    grpc::Status DeleteSlot(Context*, const Index*, Void*) override;

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
    unsigned transferCell_{0};
    int activeSlot_{-1};
    dio::endpoint::OperationMode mode_;

    std::string address_;
    std::unique_ptr<grpc::Server> server_;
};
