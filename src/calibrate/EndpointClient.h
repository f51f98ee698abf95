#pragma once

#include "calibrate/DeviceAddress.h"
#include "calibrate/EndpointStream.h"

#include <endpoint.pb.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>

namespace calibrate {

namespace protocol = dio::endpoint;

/// A device's calibration endpoint. The connection is made by the first call.
///
/// Every call blocks until the device has answered. It throws DeviceError when the device cannot be
/// reached, does not answer in time or refuses, with the method's name and the device's text; and
/// Interrupted once `stop` was requested, which ends a call that waits.
///
/// One thread at a time.
class EndpointClient {
public:
    /// `timeout` bounds each call. The end of a transfer, which a device may write to slow memory,
    /// is given kStoreFactor times as long.
    EndpointClient(const DeviceAddress& address, std::chrono::milliseconds timeout,
                   std::stop_token stop);
    ~EndpointClient();

    static constexpr int kStoreFactor = 10;

    /// What bounds each call.
    std::chrono::milliseconds timeout() const;

    /// Runs `calls`, and has the calls in it go on after a stop request: for what leaves the device
    /// as it was. They are still bounded by the timeout.
    void uninterrupted(const std::function<void()>& calls);

    /// Throws Interrupted once `stop` was requested: for work that waits for no call.
    void heedStop() const;

    // Topology.
    protocol::DeviceInfo deviceInfo();
    protocol::MicInfo micInfo(int microphone);
    protocol::SpeakerInfo speakerInfo(int speaker);
    protocol::StimuliInfo stimuliInfo();
    protocol::PinkNoiseInfo pinkNoiseInfo(int variant);
    protocol::LogSweepInfo logSweepInfo(int variant);
    protocol::SectionInfo sectionInfo(int section);
    protocol::CellInfo cellInfo(const protocol::CellIndex& cell);
    protocol::IIRInfo iirInfo(int variant);
    protocol::FIIRInfo fiirInfo(int variant);
    protocol::DelayGainInfo delayGainInfo(int variant);
    protocol::StreamingInfo streamingInfo();

    // Gains and modes.
    protocol::GainInfo speakerGainInfo();
    protocol::GainInfo micGainInfo();
    protocol::GainInfo stimuliGainInfo();
    double speakerGain();                           ///< dB
    void setSpeakerGain(double gain);               ///< dB
    double micGain();                               ///< dB
    void setMicGain(double gain);                   ///< dB
    double stimuliGain(int speaker);                ///< dB; minus infinity: never set
    void setStimuliGain(int speaker, double gain);  ///< dB
    protocol::OperationMode operationMode();
    void setOperationMode(const protocol::OperationMode& mode);

    // Measuring. A stream has no time limit but the patience of its reader.
    void prepareStimuli(const protocol::StimuliPrepare& stimuli);
    /// `startTime` is in ms since the Unix epoch by the device's clock; 0: at once.
    std::unique_ptr<EndpointStream<protocol::Progress>> startStimuli(std::uint64_t startTime);
    std::unique_ptr<EndpointStream<protocol::AudioBuffers>> startRecordingStimuli(
        std::uint64_t startTime);
    std::unique_ptr<EndpointStream<protocol::AudioBuffers>> startStreaming();

    // Presence.
    std::unique_ptr<EndpointStream<protocol::NotificationInfo>> notifications();

    // Slots.
    protocol::SlotInfo slotInfo(int slot);
    int activeSlot();  ///< -1 for none
    void setActiveSlot(int slot);
    void updateSlotInfo(const protocol::SlotInfoUpdate& update);
    void deleteSlot(int slot);

    // Transfer.
    void beginFilterTransfer(const protocol::SlotInfo& slot);
    void setTransferCell(const protocol::CellIndex& cell);
    void setCellFiir(const protocol::FIIR& filter);
    void setCellIir(const protocol::IIR& filter);
    void setCellDelayGain(const protocol::DelayGain& alignment);
    void setInputGainDelay(const protocol::GainDelay& alignment);
    /// `progress` is called with each value that the device reports, 0 to 1, in this thread.
    void endFilterTransfer(int slot, const std::function<void(double)>& progress);

private:
    class Connection;

    std::unique_ptr<Connection> connection_;
};

}  // namespace calibrate
