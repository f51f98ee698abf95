#include "modules/dirac/ServerInfo.h"

#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"

#include <array>
#include <utility>

namespace {

constexpr std::array<float, 2> kFilterSampleRates{48000.0F, 44100.0F};  // Hz
constexpr std::uint32_t kFiirTaps = 1000;
constexpr std::uint32_t kFiirBiquads = 30;
constexpr std::uint32_t kIirBiquads = 6;
constexpr std::uint32_t kMaxDelay = 150;  // samples
constexpr float kMaxGain = 10.0F;         // dB

constexpr double kGainStep = 0.5;          // dB
constexpr double kMinStimuliGain = -12.0;  // dB
constexpr double kMinMicGain = -20.0;      // dB
constexpr double kFullGain = 0.0;          // dB, the upper end of each range

constexpr float kStreamingSampleRate = 48000.0F;  // Hz
constexpr std::uint32_t kStreamingBlock = 512;    // samples

/// The quietest step of the device's volume, dB.
double quietestVolume() {
    const VeskHash value(CMRoot()->getValue(VeskPlayerVolumeMapPath()));
    const QVariantList volumes = VeskValue(value.hash()).doubleList();
    return volumes.first().toDouble();
}

void setRange(dio::endpoint::GainInfo& range, double minimum) {
    range.set_minimum(minimum);
    range.set_step(kGainStep);
    range.set_maximum(kFullGain);
}

}  // namespace

ServerInfo::ServerInfo(DeviceInfo device) : DeviceInfo(std::move(device)) {
    describeStreaming();
    describeLogSweeps();
    describePinkNoises();
    describeFilters();
    describeGains();
}

void ServerInfo::describeStreaming() {
    streamingInfo.set_sample_rate(kStreamingSampleRate);
    streamingInfo.set_block_length(kStreamingBlock);
    streamingInfo.set_supports_recording(true);
    streamingInfo.set_supports_streaming(true);
}

void ServerInfo::describeLogSweeps() {
    const auto sampleRate = static_cast<float>(stimuliSampleRate);
    const std::int32_t halfSampleRate = stimuliSampleRate / 2;
    logSweepInfos.resize(2);

    // The measurement sweep: the whole band in five seconds.
    dio::endpoint::LogSweepInfo& full = logSweepInfos[0];
    full.set_variant(0);
    full.set_sample_rate(sampleRate);
    full.set_start_frequency(10.0F);
    full.set_end_frequency(static_cast<float>(halfSampleRate));
    full.set_length(5 * static_cast<std::uint32_t>(stimuliSampleRate));
    full.set_silence(static_cast<std::uint32_t>(halfSampleRate));
    full.set_fade_out_tail(300.0);
    full.set_num_periods(1);

    // A short sweep for subwoofers, repeated without a gap while a level is adjusted.
    dio::endpoint::LogSweepInfo& bass = logSweepInfos[1];
    bass.set_variant(1);
    bass.set_sample_rate(sampleRate);
    bass.set_start_frequency(10.0F);
    bass.set_end_frequency(300.0F);
    bass.set_length(static_cast<std::uint32_t>(halfSampleRate));
    bass.set_silence(0);
    bass.set_fade_out_tail(0.0);
    bass.set_num_periods(1);
}

void ServerInfo::describePinkNoises() {
    pinkNoiseInfos.resize(1);
    pinkNoiseInfos[0].set_variant(0);
    pinkNoiseInfos[0].set_sample_rate(static_cast<float>(stimuliSampleRate));
}

void ServerInfo::describeFilters() {
    for (std::uint32_t variant = 0; variant < kFilterSampleRates.size(); ++variant) {
        const float sampleRate = kFilterSampleRates.at(variant);

        dio::endpoint::FIIRInfo& fiir = fiirInfos.emplace_back();
        fiir.set_variant(variant);
        fiir.set_sample_rate(sampleRate);
        fiir.set_max_taps(kFiirTaps);
        fiir.set_max_biquads(kFiirBiquads);

        dio::endpoint::IIRInfo& iir = iirInfos.emplace_back();
        iir.set_variant(variant);
        iir.set_sample_rate(sampleRate);
        iir.set_max_biquads(kIirBiquads);

        dio::endpoint::DelayGainInfo& delayGain = delayGainInfos.emplace_back();
        delayGain.set_variant(variant);
        delayGain.set_sample_rate(sampleRate);
        delayGain.set_max_delay(kMaxDelay);
        delayGain.set_max_gain(kMaxGain);
    }
}

void ServerInfo::describeGains() {
    setRange(micGainInfo, kMinMicGain);
    setRange(speakerGainInfo, quietestVolume());
    setRange(stimuliGainInfo, kMinStimuliGain);
}
