#pragma once

#include "calibrate/Microphone.h"

namespace calibrate {

/// A microphone of the device, which streams it to its client.
class DeviceMicrophone final : public Microphone {
public:
    /// Throws BadInput when the device does not have the microphone, DeviceError when it tells no
    /// sample rate that can be. Must not outlive the client.
    DeviceMicrophone(EndpointClient& client, int index);

    int sampleRate() const override { return rate_; }
    std::string name() const override;
    bool hasOwnClock() const override { return false; }
    std::unique_ptr<SampleStream> listen() override;
    std::unique_ptr<SampleStream> record(const Stimulus& stimulus) override;

private:
    EndpointClient& client_;
    const int index_;
    const int rate_;
};

}  // namespace calibrate
