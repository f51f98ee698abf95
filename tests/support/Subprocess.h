#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// How a process ended.
struct ProcessResult {
    int exitCode{0};     ///< minus the signal's number when a signal ended it
    std::string output;  ///< what it wrote to standard output and nobody has read yet
    std::string errors;  ///< what it wrote to standard error
};

/// A running program with its outputs captured. A program still running at the end is killed.
/// Every wait that takes too long throws std::runtime_error with what the program said so far.
class Subprocess {
public:
    static constexpr std::chrono::seconds kTimeout{30};

    /// Starts `command`, the first word of which is a path, in `directory` (empty: the present
    /// one) with `environment` ("NAME=value") added to the present one.
    explicit Subprocess(const std::vector<std::string>& command, const std::string& directory = {},
                        const std::vector<std::string>& environment = {});
    ~Subprocess();
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    pid_t id() const { return id_; }

    /// The next line of standard output without its end; none when the output has ended.
    std::optional<std::string> readLine();

    /// Waits until standard error contains `text`.
    void awaitError(const std::string& text);

    void signal(int number) const;

    /// Waits for the end.
    ProcessResult wait();

private:
    using Clock = std::chrono::steady_clock;

    struct Stream {
        int descriptor{-1};
        std::string text;
    };

    bool readMore(Clock::time_point deadline);
    void readFrom(Stream* stream);
    [[noreturn]] void failLate(const std::string& what) const;

    pid_t id_{-1};
    std::array<Stream, 2> streams_;  // output, error
};

/// Runs a program to its end.
ProcessResult runProcess(const std::vector<std::string>& command, const std::string& directory = {},
                         const std::vector<std::string>& environment = {});
