#pragma once

#include "dsp/AlignedBuffer.h"
#include "dsp/Engine.h"
#include "dsp/EngineHandover.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace dsp {

/// Runs the present engine, and fades to the next one when there is one. A new engine first hears
/// the stream until it is warm, then its output is mixed in, linearly, in 20 ms. Belongs to the
/// audio thread.
class Crossfader {
public:
    /// `handover` outlives the fader. All engines have the format of `first`.
    Crossfader(std::unique_ptr<Engine> first, EngineHandover& handover);

    /// Frames of the fade.
    [[nodiscard]] std::size_t fade() const { return fade_; }

    /// Input and output do not overlap. Allocates nothing.
    void process(const double* const* input, double* const* output, std::size_t frames) noexcept;

private:
    static constexpr std::size_t kBlock = kTransformSize;

    void processBlock(const double* const* input, double* const* output, std::size_t frames);
    void mixIn(double* const* output, std::size_t frames) const;
    [[nodiscard]] double nextShare(std::size_t frame) const;
    void advance(std::size_t frames);

    EngineHandover& handover_;
    std::unique_ptr<Engine> present_;
    std::unique_ptr<Engine> next_;
    std::size_t fade_;
    std::size_t heard_{0};  ///< frames that next_ has heard
    AlignedBuffer<double> storage_;
    std::vector<double*> nextOutput_;
    std::vector<const double*> inputs_;
    std::vector<double*> outputs_;
};

}  // namespace dsp
