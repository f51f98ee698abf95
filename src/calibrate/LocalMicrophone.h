#pragma once

#include "calibrate/AlsaCapture.h"
#include "calibrate/Microphone.h"

namespace calibrate {

/// A microphone of this machine, of any ALSA name; the device only plays. Its recordings begin
/// before the stimulus does, and nobody knows by how much.
class LocalMicrophone final : public Microphone {
public:
    /// Opens it, and keeps it from others. Throws as AlsaCapture does. Must not outlive the client.
    LocalMicrophone(EndpointClient& client, const std::string& name, int channel);

    int sampleRate() const override { return static_cast<int>(capture_.sampleRate()); }
    std::string name() const override;
    bool hasOwnClock() const override { return true; }
    std::unique_ptr<SampleStream> listen() override;
    std::unique_ptr<SampleStream> record(const Stimulus& stimulus) override;

private:
    EndpointClient& client_;
    AlsaCapture capture_;
};

}  // namespace calibrate
