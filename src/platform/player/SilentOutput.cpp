#include "platform/player/SilentOutput.h"

#include "platform/smt/FlowControl.h"

#include <algorithm>

namespace platform {

SilentOutput::SilentOutput(const AudioFormat& format, const WakeEvent& interrupt)
    : format_(format), interrupt_(interrupt) {
}

bool SilentOutput::write(std::span<const std::int32_t> samples) {
    const std::chrono::duration<double> length(static_cast<double>(samples.size()) /
                                               format_.channels / format_.rate);
    heard_ = std::max(heard_, Clock::now()) + std::chrono::duration_cast<Clock::duration>(length);
    return waitUntil(heard_ - smt::kMostInDevice);
}

bool SilentOutput::drain() {
    return waitUntil(heard_);
}

bool SilentOutput::waitUntil(Clock::time_point moment) const {
    const int descriptor = interrupt_.descriptor();
    for (auto now = Clock::now(); now < moment; now = Clock::now()) {
        if (interrupt_.isSignalled())
            return false;
        waitForInput({&descriptor, 1}, std::chrono::ceil<std::chrono::milliseconds>(moment - now));
    }
    return !interrupt_.isSignalled();
}

}  // namespace platform
