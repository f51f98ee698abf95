#pragma once

namespace platform {

/// What audio in the player looks like beside its samples, which are interleaved 32-bit integers.
struct AudioFormat {
    unsigned rate{0};  ///< Hz
    unsigned channels{0};

    friend bool operator==(const AudioFormat& a, const AudioFormat& b) = default;
};

}  // namespace platform
