#pragma once

#include "roomsim/RoomDescription.h"

#include <vector>

namespace roomsim {

/// The impulse responses, at `rate`, from each speaker of the room to the microphone in use, with
/// the speakers' and the microphone's gains and ranges in them. Reads files or computes a shoebox.
/// Throws RoomError.
std::vector<std::vector<float>> impulseResponses(const RoomDescription& room, unsigned int rate);

/// The same response at another rate: equal in frequency response, not in sample values.
std::vector<float> resampled(const std::vector<float>& response, unsigned int from,
                             unsigned int to);

/// Seconds of the longest response to any of the room's microphones. Throws RoomError.
double longestResponse(const RoomDescription& room);

}  // namespace roomsim
