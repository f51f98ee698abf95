#pragma once

#include <string>

/// What is wrong with a page as XML: elements that are not closed in order, attributes without
/// quotes or twice, identifiers twice, unknown entities, stray < and &. Empty when nothing is.
std::string whatIsMalformed(const std::string& page);
