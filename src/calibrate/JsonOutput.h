#pragma once

#include "calibrate/DeviceQuery.h"
#include "calibrate/FilterDesign.h"

#include <nlohmann/json.hpp>

namespace calibrate {

/// Results as JSON. Keys carry their unit; what a device does not tell is null.
using Json = nlohmann::ordered_json;

Json toJson(const Topology& topology);
Json toJson(const SlotTable& table);
Json toJson(const std::optional<protocol::GainInfo>& range);
Json toJson(const FilterDesign& design, const std::vector<std::string>& speakerNames);

/// Name of a filter kind: "fiir"; "kind 9" for one that the protocol does not know.
std::string filterKindName(protocol::FilterKind kind);

/// Name of a stimulus type: "log_sweep"; "type 9" for one that the protocol does not know.
std::string stimulusTypeName(protocol::StimulusType type);

}  // namespace calibrate
