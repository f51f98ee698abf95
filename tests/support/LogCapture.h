#pragma once

#include <memory>
#include <string>
#include <vector>

/// Collects what a logger says, all levels, for as long as it exists. Any thread may log.
class LogCapture {
public:
    explicit LogCapture(const std::string& loggerName);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The lines so far: level, a blank, and the message. "WARN No such path: a/b"
    std::vector<std::string> lines() const;

    /// Whether some line contains `text`.
    bool contains(const std::string& text) const;

private:
    class Private;
    const std::unique_ptr<Private> private_;
};
