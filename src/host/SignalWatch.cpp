#include "host/SignalWatch.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace host {

namespace {

constexpr int kForcedEnd = 128;  // plus the signal's number, as shells have it

// A signal handler reaches nothing but globals.
std::atomic<int> writeEnd{-1};
std::atomic<bool> endWasRequested{false};
static_assert(std::atomic<int>::is_always_lock_free);

void onSignal(int number) {
    const int previousError = errno;
    if (endWasRequested.exchange(true))
        _exit(kForcedEnd + number);
    const char byte = 0;
    // The pipe is empty and its other end open, so this cannot fail.
    [[maybe_unused]] const ssize_t written = write(writeEnd, &byte, 1);
    errno = previousError;
}

void require(bool done, const char* what) {
    if (!done)
        throw std::system_error(errno, std::generic_category(), what);
}

void handleSignals(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM})
        require(sigaction(number, &action, nullptr) == 0, "sigaction");
}

}  // namespace

SignalWatch::SignalWatch() {
    std::array<int, 2> ends{};
    require(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) == 0, "pipe");
    writeEnd = ends[1];
    endWasRequested = false;
    notifier_ = std::make_unique<QSocketNotifier>(ends[0], QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, [this] {
        notifier_->setEnabled(false);
        Q_EMIT endRequested();
    });
    handleSignals(&onSignal);
}

SignalWatch::~SignalWatch() {
    handleSignals(SIG_DFL);
    const auto readEnd = static_cast<int>(notifier_->socket());
    notifier_.reset();
    close(readEnd);
    close(writeEnd.exchange(-1));
}

}  // namespace host
