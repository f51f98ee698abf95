#include "support/BackgroundProcess.h"

#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace {

/// Arguments: log, directory, command. Each step replaces the process, so its id is the command's.
constexpr const char* kStart = R"(exec >>"$1" 2>&1; cd "$2" || exit; shift 2
exec setpriv --pdeathsig KILL -- "$@")";

pid_t start(std::vector<std::string> command) {
    const std::vector<std::string> shell{"/bin/sh", "-c", kStart, "start"};
    command.insert(command.begin(), shell.begin(), shell.end());
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);

    pid_t id = -1;
    const int error = posix_spawn(&id, arguments[0], nullptr, nullptr, arguments.data(), environ);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), arguments[0]);
    return id;
}

std::vector<std::string> joined(const std::filesystem::path& log,
                                const std::filesystem::path& directory,
                                const std::vector<std::string>& command) {
    std::vector<std::string> all{log.string(), directory.string()};
    all.insert(all.end(), command.begin(), command.end());
    return all;
}

/// The process remains to be reaped.
bool hasEndedWithin(pid_t id, std::chrono::milliseconds timeout) {
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, id, 0));
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "pidfd_open");
    pollfd end{descriptor, POLLIN, 0};
    const bool hasEnded = poll(&end, 1, static_cast<int>(timeout.count())) == 1;
    close(descriptor);
    return hasEnded;
}

ProcessEnd reap(pid_t id) {
    int status = 0;
    waitpid(id, &status, 0);
    if (WIFSIGNALED(status))
        return {-1, WTERMSIG(status)};
    return {WEXITSTATUS(status), 0};
}

}  // namespace

BackgroundProcess::BackgroundProcess(const std::vector<std::string>& command,
                                     const std::filesystem::path& directory,
                                     const std::filesystem::path& log)
    : id_(start(joined(log, directory, command))) {
}

BackgroundProcess::~BackgroundProcess() {
    signal(SIGKILL);
    if (!end_)
        reap(id_);
}

bool BackgroundProcess::isRunning() {
    return !waitForEnd(std::chrono::milliseconds(0));
}

void BackgroundProcess::signal(int number) {
    if (!end_)
        kill(id_, number);
}

std::optional<ProcessEnd> BackgroundProcess::waitForEnd(std::chrono::milliseconds timeout) {
    if (!end_ && hasEndedWithin(id_, timeout))
        end_ = reap(id_);
    return end_;
}
