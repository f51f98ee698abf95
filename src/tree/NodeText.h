#pragma once

#include <control.pb.h>

#include <iosfwd>
#include <vector>

namespace tree {

/// A table for people: path, type, who serves it, and as much of the value as fits a line.
void printNodes(std::ostream& out, const std::vector<vesk::control::Node>& nodes);

/// The value for people: a string as it is, rows one a line, anything else as JSON.
void printContent(std::ostream& out, const vesk::control::Node& node);

}  // namespace tree
