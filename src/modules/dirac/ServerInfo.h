#pragma once

#include "modules/dirac/DeviceInfo.h"

#include <endpoint.pb.h>

#include <atomic>
#include <vector>

/// The device as the calibration endpoint describes it to a client. Built once per server start in
/// the worker's thread, then only read, by any thread; only the microphone gain changes.
///
/// Element i of each list describes variant i. The messages are copied into answers as they are.
class ServerInfo : public DeviceInfo {
public:
    /// Reads the lower end of the speaker gain from the player's volume map, which must not be
    /// empty: an empty one ends the process.
    explicit ServerInfo(DeviceInfo device);

    dio::endpoint::StreamingInfo streamingInfo;
    std::vector<dio::endpoint::LogSweepInfo> logSweepInfos;
    std::vector<dio::endpoint::PinkNoiseInfo> pinkNoiseInfos;
    float levelFactor{1.0F};
    std::atomic<float> micGain{1.0F};  ///< linear

    // One element for each sample rate of a correction, 48 kHz and 44.1 kHz.
    std::vector<dio::endpoint::FIIRInfo> fiirInfos;
    std::vector<dio::endpoint::IIRInfo> iirInfos;
    std::vector<dio::endpoint::DelayGainInfo> delayGainInfos;

    dio::endpoint::GainInfo stimuliGainInfo;
    dio::endpoint::GainInfo speakerGainInfo;
    dio::endpoint::GainInfo micGainInfo;

private:
    void describeStreaming();
    void describeLogSweeps();
    void describePinkNoises();
    void describeFilters();
    void describeGains();
};
