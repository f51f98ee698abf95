#pragma once

#include <kiss_fftr.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace roomsim {

/// Discrete Fourier transform of real blocks in single precision. Spectra have bins() values from
/// 0 to the Nyquist frequency, real and imaginary parts apart. One thread at a time.
class RealFft {
public:
    /// `size` is even.
    explicit RealFft(std::size_t size);

    [[nodiscard]] std::size_t bins() const { return bins_.size(); }

    void forward(const float* samples, float* real, float* imaginary);

    /// Not scaled: a round trip multiplies by the size.
    void inverse(const float* real, const float* imaginary, float* samples);

private:
    struct Free {
        void operator()(kiss_fftr_state* state) const { kiss_fftr_free(state); }
    };
    using State = std::unique_ptr<kiss_fftr_state, Free>;

    State forward_;
    State inverse_;
    std::vector<kiss_fft_cpx> bins_;
};

}  // namespace roomsim
