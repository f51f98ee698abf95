#pragma once

#include "calibrate/EndpointClient.h"
#include "calibrate/design/DeviceDesign.h"

#include <string>
#include <vector>

namespace calibrate {

/// How much a device's filters hold.
struct DesignCapacity {
    struct Variant {
        protocol::FIIRInfo filter;
        protocol::DelayGainInfo alignment;
        protocol::IIRInfo bass;  ///< nothing where the device does not tell
    };
    std::vector<protocol::SpeakerInfo> speakers;
    std::vector<Variant> variants;
    std::vector<protocol::SectionInfo> bassSections;  ///< none: no speaker is a subwoofer
};

/// Asks the device. Throws DeviceError when it cannot hold a filter for each speaker.
DesignCapacity readDesignCapacity(EndpointClient& client, const protocol::DeviceInfo& device);

/// The design with the device's names and the filters of its variants, in their order; those of
/// other sample rates are left out. Throws BadInput, with the file's name before it, when the
/// device has other speakers, a variant that the design lacks, or less room than it needs. Speakers
/// whose names speak against their order are told in `warnings`.
design::DeviceDesign fitted(design::DeviceDesign design, const std::string& file,
                            const DesignCapacity& capacity, std::vector<std::string>& warnings);

}  // namespace calibrate
