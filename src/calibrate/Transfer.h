#pragma once

#include "calibrate/EndpointClient.h"
#include "calibrate/FilterDesign.h"
#include "calibrate/ProgressBar.h"

#include <string>
#include <vector>

namespace calibrate {

/// The section that holds a filter for each speaker, on its diagonal.
inline constexpr std::uint32_t kSpeakerSection = 5;

/// The cell of the speaker section that filters a speaker.
protocol::CellIndex speakerCell(std::size_t speaker);

/// Sends a design to the device and has it stored.
/// Throws DeviceError and Interrupted with the step that failed, and with what that means for the
/// slot: before the last step nothing is stored.
void transfer(EndpointClient& client, const protocol::SlotInfo& slot, const FilterDesign& design,
              const std::vector<std::string>& speakerNames, ProgressBar& progress);

}  // namespace calibrate
