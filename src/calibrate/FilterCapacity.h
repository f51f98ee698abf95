#pragma once

#include "calibrate/EndpointClient.h"

#include <vector>

namespace calibrate {

/// The variants of the filter that the device holds for each speaker, the same for every one; not
/// empty. Throws DeviceError that says why the device cannot hold a filter for each speaker.
std::vector<protocol::FIIRInfo> readFilterVariants(EndpointClient& client, std::size_t speakers);

}  // namespace calibrate
