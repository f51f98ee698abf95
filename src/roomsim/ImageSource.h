#pragma once

#include "roomsim/SincKernel.h"

#include <array>
#include <vector>

namespace roomsim {

/// Metres from the room's corner: x to the right, y to the back, z up.
using Position = std::array<double, 3>;

/// A rectangular room.
struct Shoebox {
    Position size;  ///< m

    /// The part of a sound's energy that a wall swallows, in [0, 1]: at x = 0 and x = size,
    /// y = 0 and y = size, z = 0 (floor) and z = size (ceiling).
    std::array<double, 6> absorption;

    double length;  ///< s, of the impulse responses
};

/// Computes impulse responses between points of a shoebox by the image-source method (Allen and
/// Berkley, 1979), each image at its exact, fractional delay. Constant after construction.
class ImageSource {
public:
    /// `speedOfSound` in m/s, `rate` in Hz.
    ImageSource(const Shoebox& room, double speedOfSound, unsigned int rate);

    /// The response from a source to a microphone, both inside the room and not at the same place,
    /// with all images that arrive within its length and are not fainter than -180 dB. One metre
    /// of free path has gain 1.
    [[nodiscard]] std::vector<float> response(const Position& source,
                                              const Position& microphone) const;

private:
    Shoebox room_;
    std::size_t length_;      ///< samples
    double samplesPerMetre_;  ///< of delay
    SincKernel kernel_;
};

}  // namespace roomsim
