#pragma once

#include "sdk/records/VeskHash.h"

namespace platform {

/// The value at playerStatisticsPath(): what the player has done since the platform exists.
class PlayerStatistics : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(qint64, frames, Frames)        // that have reached the output
    VESK_FIELD(qint64, underruns, Underruns)  // the output ran dry, or the source was late
};

}  // namespace platform
