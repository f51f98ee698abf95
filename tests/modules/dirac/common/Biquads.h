#pragma once

#include <endpoint.pb.h>

#include <array>

/// In the order a1, a2, b0, b1, b2.
inline std::array<float, 5> numbersOf(const dio::endpoint::Biquad& biquad) {
    return {biquad.a1(), biquad.a2(), biquad.b0(), biquad.b1(), biquad.b2()};
}

/// A biquad whose coefficients a1, a2, b0, b1, b2 are `first`, `first` + 1, ….
inline dio::endpoint::Biquad biquadFrom(float first) {
    dio::endpoint::Biquad biquad;
    biquad.set_a1(first);
    biquad.set_a2(first + 1);
    biquad.set_b0(first + 2);
    biquad.set_b1(first + 3);
    biquad.set_b2(first + 4);
    return biquad;
}
