#pragma once

#include <sys/mman.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <new>

/// Runs in a process of its own; its result is the exit code.
class ForkedProcess {
public:
    explicit ForkedProcess(const std::function<bool()>& run) : pid_(fork()) {
        if (pid_ == 0)
            _exit(run() ? 0 : 1);
    }
    ~ForkedProcess() { kill(); }
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    bool succeeded() {
        const int status = wait();
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

    /// A system call in which the process waits ends early, with EINTR.
    void pauseAndResume() const {
        ::kill(pid_, SIGSTOP);
        waitpid(pid_, nullptr, WUNTRACED);
        ::kill(pid_, SIGCONT);
    }

    void kill() {
        if (pid_ < 0)
            return;
        ::kill(pid_, SIGKILL);
        wait();
    }

private:
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

    pid_t pid_;
};

/// An object that forked processes see alike.
template <typename T>
class ProcessShared {
public:
    ProcessShared()
        : object_(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                            -1, 0)) T{}) {}
    ~ProcessShared() { munmap(object_, sizeof(T)); }
    ProcessShared(const ProcessShared&) = delete;
    ProcessShared& operator=(const ProcessShared&) = delete;

    T& operator*() const { return *object_; }

private:
    T* const object_;
};

/// Root may use every semaphore; nobody may not.
inline void giveUpRoot() {
    constexpr uid_t nobody = 65534;
    if (geteuid() == 0 && setuid(nobody) != 0)
        _exit(2);
}
