#include "calibrate/run/PlayCommand.h"

#include "calibrate/Errors.h"
#include "calibrate/Eventually.h"
#include "calibrate/Text.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <vector>

namespace calibrate::run {
namespace {

/// The environment of this process with FILE.
class Environment {
public:
    explicit Environment(const std::filesystem::path& file) : file_("FILE=" + file.string()) {
        for (char** entry = environ; *entry != nullptr; ++entry) {
            if (std::strncmp(*entry, "FILE=", 5) != 0)
                entries_.push_back(*entry);
        }
        entries_.push_back(file_.data());
        entries_.push_back(nullptr);
    }

    char** get() { return entries_.data(); }

private:
    std::string file_;
    std::vector<char*> entries_;
};

/// How the command is started: with the signals that this process has blocked, in a group of its
/// own, its output beside our own results.
class Attributes {
public:
    Attributes() {
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_init(&actions_);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", 0, 0);
        posix_spawn_file_actions_adddup2(&actions_, STDERR_FILENO, STDOUT_FILENO);
    }
    ~Attributes() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

}  // namespace

PlayCommand::PlayCommand(const std::string& command, const std::filesystem::path& file)
    : command_(command) {
    Environment environment(file);
    const Attributes how;
    std::string name = "sh";
    std::string option = "-c";
    std::string text = command;
    char* arguments[] = {name.data(), option.data(), text.data(), nullptr};
    pid_t shell = -1;
    const int error = posix_spawn(&shell, "/bin/sh", &how.actions_, &how.attributes_, arguments,
                                  environment.get());
    if (error != 0) {
        throw OutputError("--play: the shell cannot be started: " +
                          std::string(std::strerror(error)));
    }
    process_ = shell;
    group_ = shell;
}

PlayCommand::~PlayCommand() {
    if (group_ < 0)
        return;
    kill(-group_, SIGTERM);
    if (!endsInTime())
        kill(-group_, SIGKILL);
    if (process_ >= 0)
        waitpid(process_, nullptr, 0);
}

/// Whether nothing of the group is left after a second at most.
bool PlayCommand::endsInTime() {
    return eventually([this] {
        if (process_ >= 0 && waitpid(process_, nullptr, WNOHANG) == process_)
            process_ = -1;
        return kill(-group_, 0) != 0;
    });
}

void PlayCommand::check() {
    int status = 0;
    if (process_ < 0 || waitpid(process_, &status, WNOHANG) != process_)
        return;
    process_ = -1;
    // Later its number may be another's.
    if (kill(-group_, 0) != 0)
        group_ = -1;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw OutputError("--play: the command \"" + printable(command_) +
                          "\" failed; it has to play the file $FILE on the device");
}

}  // namespace calibrate::run
