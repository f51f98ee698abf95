#pragma once

#include "segment/CommandLine.h"

#include <iosfwd>

namespace segment {

/// Does what the command asks and prints to `out`. Throws SegmentError when the segment cannot be
/// read; `watch` reports that as a line instead and goes on.
void run(const Command& command, std::ostream& out);

}  // namespace segment
