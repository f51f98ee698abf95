#pragma once

#include "dsp/VectorKernels.h"

#include <cstddef>

namespace dsp {

/// A turn in the complex plane.
struct Rotation {
    float cosine;
    float sine;
};

/// By an angle, twice and three times that.
struct Twiddle {
    Rotation once;
    Rotation twice;
    Rotation thrice;
};

/// What the transform of kTransformSize points multiplies with.
struct TransformTables {
    Rotation weights[kTransformSize];   ///< quarter of a turn over the block
    Twiddle of128[kTransformSize / 4];  ///< of a transform of 128 points, backwards
    Twiddle of32[kTransformSize / 16];
    Twiddle of8[kTransformSize / 64];
};

/// Made at the first call, which allocates nothing but takes its time.
const TransformTables& transformTables();

}  // namespace dsp
