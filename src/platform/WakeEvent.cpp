#include "platform/WakeEvent.h"

#include <QtGlobal>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace platform {

namespace {

constexpr std::size_t kMostDescriptors = 8;

int newDescriptor() {
    const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    return descriptor;
}

}  // namespace

WakeEvent::WakeEvent() : descriptor_(newDescriptor()) {
}

WakeEvent::~WakeEvent() {
    close(descriptor_);
}

/// Fails only when the counter is full, and then the descriptor is readable already.
void WakeEvent::signal() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(descriptor_, &one, sizeof one);
}

/// Fails only when there is nothing to clear.
void WakeEvent::clear() {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = read(descriptor_, &count, sizeof count);
}

bool WakeEvent::isSignalled() const {
    pollfd state{descriptor_, POLLIN, 0};
    return poll(&state, 1, 0) > 0;
}

void waitForInput(std::span<const int> descriptors, std::chrono::milliseconds timeout) {
    using Clock = std::chrono::steady_clock;
    std::array<pollfd, kMostDescriptors> states{};
    Q_ASSERT(descriptors.size() <= states.size());
    std::ranges::transform(descriptors, states.begin(), [](int descriptor) {
        return pollfd{descriptor, POLLIN, 0};
    });
    const auto end = Clock::now() + timeout;
    int result = 0;
    do {  // again when a signal interrupts it
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        result = poll(states.data(), descriptors.size(),
                      static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    } while (result < 0 && errno == EINTR);
}

}  // namespace platform
