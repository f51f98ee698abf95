#include "platform/alsa/XrunLog.h"

#include "platform/Log.h"

#include <bit>
#include <utility>

namespace platform {

XrunLog::XrunLog(std::string who, std::string what) : who_(std::move(who)), what_(std::move(what)) {
}

void XrunLog::report(std::uint64_t total) {
    if (std::bit_width(total) == std::bit_width(reported_))
        return;
    reported_ = total;
    LOG4CPLUS_WARN(logger, who_ << ": " << what_ << " number " << total);
}

}  // namespace platform
