#pragma once

#include "sdk/dldsp/DiracConfiguration.h"
#include "segment/ChannelResponse.h"

#include <nlohmann/json.hpp>

#include <vector>

namespace segment {

/// The whole image but for the bytes of the sub-sampler data: every channel and cell, each list as
/// long as its count says and its capacity allows. Single-precision numbers are exact.
nlohmann::ordered_json imageJson(const DiracConfiguration& image);

/// State and digest of the image.
nlohmann::ordered_json imageSummaryJson(const DiracConfiguration& image);

/// Points as a list of objects; the magnitude of silence is null.
nlohmann::ordered_json responseJson(const std::vector<ResponsePoint>& points);

}  // namespace segment
