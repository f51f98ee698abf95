#pragma once

#include "platform/cm/Tree.h"

#include <control.pb.h>

namespace host {

/// How much of a value travels.
enum class ValueDetail { Whole, LongListsShortened };

vesk::control::Value valueMessage(const VeskValue& value, ValueDetail detail = ValueDetail::Whole);

/// Everything about a node.
vesk::control::Node nodeMessage(const platform::NodeInfo& info,
                                ValueDetail detail = ValueDetail::Whole);

/// The new content of a node.
vesk::control::Node changeMessage(const platform::Change& change);

}  // namespace host
