#include "roomsim/RealFft.h"

#include <new>

namespace roomsim {

RealFft::RealFft(std::size_t size)
    : forward_(kiss_fftr_alloc(static_cast<int>(size), 0, nullptr, nullptr)),
      inverse_(kiss_fftr_alloc(static_cast<int>(size), 1, nullptr, nullptr)),
      bins_(size / 2 + 1) {
    if (!forward_ || !inverse_)
        throw std::bad_alloc();
}

void RealFft::forward(const float* samples, float* real, float* imaginary) {
    kiss_fftr(forward_.get(), samples, bins_.data());
    for (std::size_t bin = 0; bin < bins_.size(); ++bin) {
        real[bin] = bins_[bin].r;
        imaginary[bin] = bins_[bin].i;
    }
}

void RealFft::inverse(const float* real, const float* imaginary, float* samples) {
    for (std::size_t bin = 0; bin < bins_.size(); ++bin)
        bins_[bin] = {real[bin], imaginary[bin]};
    kiss_fftri(inverse_.get(), bins_.data(), samples);
}

}  // namespace roomsim
