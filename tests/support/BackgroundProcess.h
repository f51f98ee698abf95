#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// How a process ended.
struct ProcessEnd {
    int exitCode{-1};  ///< of a normal exit, otherwise -1
    int signal{0};     ///< that killed it, otherwise 0
};

/// A process that runs beside the test, its output in a file. It dies with the thread that started
/// it, so that a test that is killed leaves nothing behind.
class BackgroundProcess {
public:
    /// Starts `command` in `directory`; both outputs are appended to `log`. A command that cannot
    /// be executed ends at once, with the reason in the log.
    BackgroundProcess(const std::vector<std::string>& command,
                      const std::filesystem::path& directory, const std::filesystem::path& log);
    /// Kills what still runs.
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    pid_t id() const { return id_; }
    bool isRunning();
    void signal(int number);

    /// None when it still runs after `timeout`.
    std::optional<ProcessEnd> waitForEnd(std::chrono::milliseconds timeout);

private:
    const pid_t id_;
    std::optional<ProcessEnd> end_;
};
