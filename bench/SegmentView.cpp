#include "SegmentView.h"

#include "sdk/dldsp/DiracConfiguration.h"

#include <sys/shm.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <system_error>

namespace {

const std::byte* attach(int key) {
    const int id = shmget(key, 0, 0);
    void* const address = id < 0 ? nullptr : shmat(id, nullptr, SHM_RDONLY);
    if (id < 0 || reinterpret_cast<std::intptr_t>(address) == -1)
        throw std::system_error(errno, std::generic_category(), "segment");
    return static_cast<const std::byte*>(address);
}

/// Between two glances: leaves the processor to the device.
void rest() {
    constexpr timespec interval{0, 10'000};
    nanosleep(&interval, nullptr);
}

}  // namespace

SegmentView::SegmentView(int key) : address_(attach(key)) {
}

SegmentView::~SegmentView() {
    shmdt(address_);
}

float SegmentView::lastChannelTap() const {
    constexpr std::size_t channel =
        DiracLimits::groups * DiracLimits::channels * sizeof(DiracChannelFilter) -
        sizeof(DiracChannelFilter);
    constexpr std::size_t offset = offsetof(DiracSegment, configuration) +
                                   offsetof(DiracConfiguration, groups) + channel +
                                   offsetof(DiracChannelFilter, taps);
    return *reinterpret_cast<const volatile float*>(address_ + offset);
}

bool SegmentView::awaitLastChannelTap(float tap, std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (lastChannelTap() != tap) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        rest();
    }
    return true;
}
