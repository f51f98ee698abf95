#pragma once

#include "roomsim/RealFft.h"

#include <cstddef>
#include <span>
#include <vector>

namespace roomsim {

/// Convolves several inputs with one stretch of impulse response each and adds them up, by FFT in
/// partitions of equal size (overlap-save). A stage works on one block of input after the other;
/// blocks of silence cost next to nothing. One thread at a time.
class ConvolverStage {
public:
    /// One stretch per input; a shorter one is taken as followed by zeros. `block` is even.
    ConvolverStage(const std::vector<std::span<const float>>& responses, std::size_t block);

    [[nodiscard]] std::size_t block() const { return block_; }

    /// Samples that are missing from the current block.
    [[nodiscard]] std::size_t missing() const { return block_ - filled_; }

    /// Takes the next `count` <= missing() samples of each input. `output`, unless null, gets the
    /// stage's output at the same samples added; that costs a transform for each call.
    void process(const float* const* input, std::size_t count, float* output);

    /// Takes the next `count` <= missing() samples of each input. `output`, unless null, gets the
    /// output one block earlier added: a transform for each block, however short the calls.
    void processDelayed(const float* const* input, std::size_t count, float* output);

    /// As if all input had been silence.
    void reset();

private:
    struct Input {
        std::vector<float> window;     ///< the block before, then the current one as far as filled
        std::vector<float> responses;  ///< spectra of the partitions
        std::vector<float> history;    ///< spectra of the windows, a ring over the blocks
        std::vector<bool> sounds;      ///< for each place in the ring: not silence
    };
    struct Spectrum {
        float* real;
        float* imaginary;
    };

    void transformResponse(std::span<const float> response, Input& input);
    void take(const float* const* input, std::size_t count);
    void transformWindows();
    void transformWindow(Input& input);
    void advance();
    void computeOutput();
    void computeDelayedOutput();
    void toOutput(bool sounds);
    bool accumulate(std::size_t first, std::size_t last, std::size_t age, std::vector<float>& sum);
    static void multiplyAdd(Spectrum window, Spectrum response, Spectrum sum, std::size_t bins);
    [[nodiscard]] Spectrum spectrum(std::vector<float>& spectra, std::size_t index) const;
    [[nodiscard]] std::size_t slotOf(std::size_t age) const;
    [[nodiscard]] std::size_t slots() const { return partitions_ + 1; }

    std::size_t block_;
    std::size_t partitions_;
    RealFft fft_;
    std::vector<Input> inputs_;
    std::size_t slot_ = 0;    ///< of the current block in the rings
    std::size_t filled_ = 0;  ///< samples of the current block

    std::vector<float> earlier_;  ///< what earlier blocks give to the current one
    bool earlierSounds_ = false;
    bool earlierIsValid_ = false;
    std::vector<float> sum_;
    std::vector<float> output_;  ///< time domain; the second half is the block's output
    bool delayedIsValid_ = false;
};

}  // namespace roomsim
