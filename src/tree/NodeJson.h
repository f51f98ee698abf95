#pragma once

#include <control.pb.h>
#include <nlohmann/json.hpp>

namespace tree {

/// The value of a value node (null when it has none), the rows of a rows node.
nlohmann::ordered_json contentJson(const vesk::control::Node& node);

/// Everything about the node.
nlohmann::ordered_json nodeJson(const vesk::control::Node& node);

/// A change: path and new content.
nlohmann::ordered_json changeJson(const vesk::control::Node& change);

}  // namespace tree
