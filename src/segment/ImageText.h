#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

#include <cstdint>
#include <iosfwd>
#include <string>

namespace segment {

/// A number that tells images apart: FNV-1a, 64 bits, over all bytes behind the time stamp. Images
/// with the same content have the same digest whenever they were published.
std::uint64_t imageDigest(const DiracConfiguration& image);

/// The digest as 16 hexadecimal digits.
std::string imageDigestText(const DiracConfiguration& image);

/// "2024-05-01 12:00:00.123 UTC" from milliseconds since the Unix epoch.
std::string timeStampText(std::int64_t milliseconds);

/// The image on one line: state and digest.
std::string imageSummary(const DiracConfiguration& image);

/// The image for people: state, speakers, the channels of both groups that differ from the default
/// or have a speaker, sub-sampler data, bass control.
void printImage(std::ostream& out, const DiracConfiguration& image);

}  // namespace segment
