#pragma once

#include "dsp/AlignedBuffer.h"
#include "dsp/Correction.h"
#include "dsp/DelayLine.h"
#include "dsp/VectorKernels.h"

#include <cstddef>
#include <vector>

namespace dsp {

/// The matrices of bass control, one after the other, in double precision. One thread at a time.
class BassControl {
public:
    static constexpr std::size_t kMostFrames = kTransformSize;

    /// Works on `channels` channels; between the sections there may be more lines.
    BassControl(const std::vector<BassControlSection>& sections, std::size_t channels);

    /// At most kMostFrames frames. Allocates nothing.
    void process(const double* const* input, double* const* output, std::size_t frames);

private:
    /// A biquad in transposed direct form 2.
    struct Biquad {
        explicit Biquad(const DiracBiquad& coefficients);
        void process(double* samples, std::size_t frames);

        double a1, a2, b0, b1, b2;
        double state1{0};
        double state2{0};
    };

    struct Cell {
        explicit Cell(const BassControlCell& cell);
        void process(double* samples, std::size_t frames);

        std::size_t input;
        std::size_t output;
        std::vector<Biquad> biquads;
        DelayLine delay;
        double factor;
    };

    using Lines = std::vector<double*>;

    void process(std::vector<Cell>* section, std::size_t frames);

    std::size_t channels_;
    std::vector<std::vector<Cell>> sections_;
    Lines from_;  ///< the lines before a section, up to the last one that anything uses
    Lines to_;    ///< the lines behind it
    AlignedBuffer<double> storage_;
    double* cellSamples_;
};

}  // namespace dsp
