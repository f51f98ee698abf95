#include "sdk/smt/PcmPayloader.h"

namespace smt {

void PcmPayloader::setNewFormat(unsigned rate, unsigned channels, audioUtils::PcmFormat format) {
    rate_ = rate;
    channels_ = channels;
    format_ = format;
}

}  // namespace smt
