#pragma once

#include "calibrate/EndpointClient.h"
#include "calibrate/FilterDesign.h"

#include <functional>
#include <string>
#include <vector>

namespace calibrate {

/// The section that holds a filter for each speaker, on its diagonal.
inline constexpr std::uint32_t kSpeakerSection = 5;

/// The cell of the speaker section that filters a speaker.
protocol::CellIndex speakerCell(std::size_t speaker);

/// A part of a design that is sent between the beginning and the end of a transfer.
struct TransferStep {
    std::string what;  ///< "sending speaker 0 "Left""
    std::function<void(EndpointClient&)> send;
};

/// Is told how far the transfer is, 0 to 1, and at what.
using TransferProgress = std::function<void(double, const std::string&)>;

/// Sends a design, step by step, and has it stored. Once the device stores, a stop request waits
/// until it is done when `storesToTheEnd`.
/// Throws DeviceError and Interrupted with the step that failed, and with what that means for the
/// slot: before the last step nothing is stored.
void transfer(EndpointClient& client, const protocol::SlotInfo& slot,
              const std::vector<TransferStep>& steps, const TransferProgress& progress,
              bool storesToTheEnd = false);

/// What sends filters of taps alone. The design must outlive the steps.
std::vector<TransferStep> transferSteps(const FilterDesign& design,
                                        const std::vector<std::string>& speakerNames);

/// The present time in ms since the Unix epoch; another than that of the slot's present filter,
/// because a device tells designs apart by it.
std::int64_t creationTime(const protocol::SlotInfo& present);

/// Throws DeviceError when the device does not show what was transferred.
void checkStored(EndpointClient& client, const protocol::SlotInfo& slot);

}  // namespace calibrate
