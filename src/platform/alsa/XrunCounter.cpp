#include "platform/alsa/XrunCounter.h"

#include "platform/Log.h"

#include <bit>
#include <utility>

namespace platform {

XrunCounter::XrunCounter(std::string device, std::string what)
    : device_(std::move(device)), what_(std::move(what)) {
}

void XrunCounter::count() {
    const std::uint64_t total = ++total_;
    if (std::has_single_bit(total))
        LOG4CPLUS_WARN(logger, "\"" << device_ << "\": " << what_ << " number " << total);
}

}  // namespace platform
