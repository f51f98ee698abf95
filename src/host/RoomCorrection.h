#pragma once

#include "dsp/Processor.h"
#include "platform/player/AudioProcessor.h"

#include <memory>

namespace host {

/// The DSP as the player sees it.
class RoomCorrection : public platform::AudioProcessor {
public:
    explicit RoomCorrection(std::shared_ptr<dsp::Processor> processor);

    void prepare(const platform::AudioFormat& format) override;
    std::size_t latency() const override;
    void process(std::span<std::int32_t> samples) noexcept override;

private:
    const std::shared_ptr<dsp::Processor> processor_;
};

}  // namespace host
