#pragma once

#include "sdk/smt/PcmFormat.h"

namespace smt {

/// Describes PCM to the receiver of a stream. Belongs to its user, who keeps it alive while a
/// sender uses it.
class PcmPayloader {
public:
    /// `rate` in Hz, `channels` interleaved.
    void setNewFormat(unsigned rate, unsigned channels, audioUtils::PcmFormat format);

    unsigned rate() const { return rate_; }
    unsigned channels() const { return channels_; }
    audioUtils::PcmFormat format() const { return format_; }

private:
    unsigned rate_{0};
    unsigned channels_{0};
    audioUtils::PcmFormat format_{audioUtils::PcmFormat::S32};
};

}  // namespace smt
