#include "roomsim/Wakeup.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace roomsim {
namespace {

void check(int result, const char* what) {
    if (result < 0)
        throw std::system_error(errno, std::system_category(), what);
}

void watch(int epoll, int file) {
    epoll_event event{};
    event.events = EPOLLIN;
    check(epoll_ctl(epoll, EPOLL_CTL_ADD, file, &event), "epoll_ctl");
}

}  // namespace

Wakeup::Wakeup(int callFd)
    : callFd_(callFd),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    check(epoll_.get(), "epoll_create1");
    check(timer_.get(), "timerfd_create");
    watch(epoll_.get(), timer_.get());
    watch(epoll_.get(), callFd);
}

/// The timer is never read: it stays readable until it is set again.
void Wakeup::at(std::int64_t wall) {
    std::array<char, 64> calls{};
    while (read(callFd_, calls.data(), calls.size()) > 0) {
    }
    if (wall == armed_)
        return;
    itimerspec setting{};
    setting.it_value.tv_sec = wall / 1'000'000'000;
    setting.it_value.tv_nsec = wall % 1'000'000'000;
    check(timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr), "timerfd_settime");
    armed_ = wall;
}

}  // namespace roomsim
