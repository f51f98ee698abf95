#include "host/RoomCorrection.h"

#include <utility>

namespace host {

RoomCorrection::RoomCorrection(std::shared_ptr<dsp::Processor> processor)
    : processor_(std::move(processor)) {
}

void RoomCorrection::prepare(const platform::AudioFormat& format) {
    processor_->prepare({format.rate, format.channels});
}

std::size_t RoomCorrection::latency() const {
    return processor_->latency();
}

void RoomCorrection::process(std::span<std::int32_t> samples) noexcept {
    processor_->process(samples);
}

}  // namespace host
