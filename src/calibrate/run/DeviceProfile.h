#pragma once

#include "calibrate/DeviceQuery.h"
#include "calibrate/EndpointClient.h"
#include "calibrate/Microphone.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/measurement/LogSweep.h"
#include "calibrate/measurement/RecordingCheck.h"

#include <string>
#include <vector>

namespace calibrate::run {

/// What a calibration has to know of a device.
struct DeviceProfile {
    struct Speaker {
        std::string name;  ///< of this device's speakers no other has the same
        bool subwoofer{false};
        unsigned group{0};

        /// What it can be relied on to play: the device does not tell where a subwoofer ends.
        measurement::PlayedRange range() const;
    };

    protocol::DeviceInfo device;
    std::vector<Speaker> speakers;  ///< not empty
    std::string microphoneName;
    int microphoneRate{0};        ///< Hz
    measurement::LogSweep sweep;  ///< the one with the widest range
    int sweepVariant{0};
    protocol::GainInfo stimulusGain;
    std::vector<protocol::FIIRInfo> filters;  ///< one for each sample rate, not empty
    design::AlignmentCapacity alignment;
    design::BassCapacity bass;
    SlotTable slots;

    /// s that each speaker plays, silence included
    double sweepPeriod() const;
    bool hasSubwoofer() const;
    /// What fits into the device's filters, in their order.
    std::vector<design::FilterCapacity> capacities() const;
};

/// Asks the device. Throws DeviceError that says what it lacks for a calibration.
DeviceProfile readProfile(EndpointClient& client, const Microphone& microphone);

/// The slot to fill: `wanted`, or the first that is empty. Throws BadInput when there is none.
int chooseSlot(const DeviceProfile& profile, std::optional<int> wanted);

}  // namespace calibrate::run
