#include "calibrate/Interruption.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace calibrate {
namespace {

/// A command that was started to outlive its terminal (nohup) stays so.
bool isIgnored(int signal) {
    struct sigaction present {};
    return sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

sigset_t watchedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (!isIgnored(SIGHUP))
        sigaddset(&signals, SIGHUP);
    return signals;
}

/// A reader that is gone must not end the command in the middle: writing to it fails instead.
sigset_t blockedSignals() {
    sigset_t signals = watchedSignals();
    sigaddset(&signals, SIGPIPE);
    return signals;
}

int checked(int descriptor) {
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "cannot watch for Ctrl-C");
    return descriptor;
}

}  // namespace

Interruption::Interruption() {
    const sigset_t blocked = blockedSignals();
    const sigset_t signals = watchedSignals();
    pthread_sigmask(SIG_BLOCK, &blocked, &previousMask_);
    signalDescriptor_ = checked(signalfd(-1, &signals, SFD_CLOEXEC));
    endDescriptor_ = checked(eventfd(0, EFD_CLOEXEC));
    watcher_ = std::thread([this] { watch(); });
}

Interruption::~Interruption() {
    eventfd_write(endDescriptor_, 1);
    watcher_.join();
    close(endDescriptor_);
    close(signalDescriptor_);
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
}

void Interruption::watch() {
    for (;;) {
        pollfd descriptors[] = {{signalDescriptor_, POLLIN, 0}, {endDescriptor_, POLLIN, 0}};
        poll(descriptors, 2, -1);
        if (descriptors[1].revents != 0)
            return;
        signalfd_siginfo info{};
        if (read(signalDescriptor_, &info, sizeof info) != sizeof info)
            continue;
        const int number = static_cast<int>(info.ssi_signo);
        if (signal_.exchange(number) != 0)
            _exit(128 + number);
        source_.request_stop();
    }
}

}  // namespace calibrate
