#include "platform/player/Volume.h"

#include "platform/player/Saturation.h"

#include <algorithm>
#include <cmath>

namespace platform {

namespace {

constexpr std::size_t kRampsPerSecond = 100;

}  // namespace

Volume::Volume(const AudioFormat& format, double gain)
    : channels_(format.channels),
      rampFrames_(std::max<std::size_t>(format.rate / kRampsPerSecond, 1)),
      gain_(gain),
      target_(gain) {
}

void Volume::apply(std::span<std::int32_t> samples, double gain) noexcept {
    if (gain != target_)
        turnTo(gain);
    if (framesLeft_ == 0 && gain_ == 1.0)
        return;
    for (std::size_t i = 0; i < samples.size(); i += channels_) {
        if (framesLeft_ > 0)
            gain_ = --framesLeft_ == 0 ? target_ : gain_ + step_;
        for (std::int32_t& sample : samples.subspan(i, channels_))
            sample = saturated(sample * gain_);
    }
}

void Volume::turnTo(double gain) noexcept {
    target_ = gain;
    framesLeft_ = rampFrames_;
    step_ = (target_ - gain_) / static_cast<double>(rampFrames_);
}

double gainOf(double attenuation) {
    constexpr double kDecibelsPerDecade = 20.0;
    return std::pow(10.0, std::min(attenuation, 0.0) / kDecibelsPerDecade);
}

}  // namespace platform
