#pragma once

#include <chrono>

namespace smt {

// At most 0.4 s of audio lies between a sender and the speaker, so that whoever waits 1.5 s after
// the last data has heard all of it.

/// Between the sender and the playback device. A single message that is longer passes alone.
constexpr std::chrono::milliseconds kMostBeforeDevice{300};
/// In the playback device.
constexpr std::chrono::milliseconds kMostInDevice{100};

/// After so long a sender gives up waiting for a player.
constexpr std::chrono::seconds kPlayerArrival{5};

/// How often both ends look whether their peer still exists: nanomsg does not tell.
constexpr std::chrono::milliseconds kBetweenLooks{10};

}  // namespace smt
