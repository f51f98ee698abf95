#include "support/Subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace {

void require(int error, const char* what) {
    if (error != 0)
        throw std::system_error(error, std::generic_category(), what);
}

std::array<int, 2> newPipe() {
    std::array<int, 2> ends{};
    require(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    return ends;
}

std::vector<char*> pointersTo(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (auto& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& added) {
    std::vector<std::string> all = added;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const auto nameLength = text.find('=') + 1;
        const bool replaced = std::any_of(added.begin(), added.end(), [&](const auto& other) {
            return other.compare(0, nameLength, text, 0, nameLength) == 0;
        });
        if (!replaced)
            all.push_back(text);
    }
    return all;
}

/// What a new process does before the program starts.
class SpawnActions {
public:
    SpawnActions() { require(posix_spawn_file_actions_init(&actions_), "posix_spawn"); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    void redirect(int from, int to) {
        require(posix_spawn_file_actions_adddup2(&actions_, from, to), "posix_spawn");
    }
    void changeDirectory(const std::string& directory) {
        require(posix_spawn_file_actions_addchdir_np(&actions_, directory.c_str()), "posix_spawn");
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

int exitCodeOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace

Subprocess::Subprocess(const std::vector<std::string>& command, const std::string& directory,
                       const std::vector<std::string>& environment) {
    const auto output = newPipe();
    const auto errors = newPipe();
    SpawnActions actions;
    actions.redirect(output[1], STDOUT_FILENO);
    actions.redirect(errors[1], STDERR_FILENO);
    if (!directory.empty())
        actions.changeDirectory(directory);

    auto words = command;
    auto variables = environmentWith(environment);
    const int error = posix_spawn(&id_, words.front().c_str(), actions.get(), nullptr,
                                  pointersTo(words).data(), pointersTo(variables).data());
    close(output[1]);
    close(errors[1]);
    streams_[0].descriptor = output[0];
    streams_[1].descriptor = errors[0];
    require(error, command.front().c_str());
}

Subprocess::~Subprocess() {
    if (id_ > 0) {
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }
    for (const auto& stream : streams_)
        if (stream.descriptor >= 0)
            close(stream.descriptor);
}

std::optional<std::string> Subprocess::readLine() {
    const auto deadline = Clock::now() + kTimeout;
    auto& text = streams_[0].text;
    while (text.find('\n') == std::string::npos) {
        if (streams_[0].descriptor < 0)
            return std::nullopt;
        if (!readMore(deadline))
            failLate("a line");
    }
    const auto end = text.find('\n');
    const std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    return line;
}

void Subprocess::awaitError(const std::string& text) {
    const auto deadline = Clock::now() + kTimeout;
    while (streams_[1].text.find(text) == std::string::npos)
        if (streams_[1].descriptor < 0 || !readMore(deadline))
            failLate("\"" + text + "\" on standard error");
}

void Subprocess::signal(int number) const {
    kill(id_, number);
}

ProcessResult Subprocess::wait() {
    const auto deadline = Clock::now() + kTimeout;
    while (streams_[0].descriptor >= 0 || streams_[1].descriptor >= 0)
        if (!readMore(deadline))
            failLate("its end");
    int status = 0;
    waitpid(id_, &status, 0);
    id_ = -1;
    return {exitCodeOf(status), streams_[0].text, streams_[1].text};
}

/// Waits for more from either stream; false when the time is up.
bool Subprocess::readMore(Clock::time_point deadline) {
    std::array<pollfd, 2> waiting{};
    for (std::size_t i = 0; i < waiting.size(); ++i)
        waiting[i] = {streams_[i].descriptor, POLLIN, 0};
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (poll(waiting.data(), waiting.size(), static_cast<int>(std::max<long>(left, 0))) <= 0)
        return false;
    for (std::size_t i = 0; i < waiting.size(); ++i)
        if (waiting[i].revents != 0)
            readFrom(&streams_[i]);
    return true;
}

void Subprocess::readFrom(Stream* stream) {
    std::array<char, 65536> block{};
    const ssize_t count = read(stream->descriptor, block.data(), block.size());
    if (count > 0) {
        stream->text.append(block.data(), static_cast<std::size_t>(count));
        return;
    }
    close(stream->descriptor);
    stream->descriptor = -1;
}

void Subprocess::failLate(const std::string& what) const {
    throw std::runtime_error("waited in vain for " + what + "; output \"" + streams_[0].text +
                             "\", errors \"" + streams_[1].text + "\"");
}

ProcessResult runProcess(const std::vector<std::string>& command, const std::string& directory,
                         const std::vector<std::string>& environment) {
    return Subprocess(command, directory, environment).wait();
}
