#include "support/LogCapture.h"

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <algorithm>
#include <mutex>

namespace {

class LineAppender : public log4cplus::Appender {
public:
    ~LineAppender() override {
        destructorImpl();
        const std::lock_guard afterTheLastLine(mutex_);
    }

    void close() override {}

    std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        const std::lock_guard lock(mutex_);
        lines_.push_back(log4cplus::getLogLevelManager().toString(event.getLogLevel()) + " " +
                         event.getMessage());
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
};

}  // namespace

class LogCapture::Private {
public:
    explicit Private(const std::string& loggerName)
        : logger_(log4cplus::Logger::getInstance(loggerName)), level_(logger_.getLogLevel()) {
        logger_.setLogLevel(log4cplus::ALL_LOG_LEVEL);
        logger_.addAppender(shared_);
    }

    ~Private() {
        logger_.removeAppender(shared_);
        logger_.setLogLevel(level_);
    }

    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;

    std::vector<std::string> lines() const { return appender_->lines(); }

private:
    log4cplus::Logger logger_;
    const log4cplus::LogLevel level_;
    LineAppender* const appender_{new LineAppender};
    log4cplus::SharedAppenderPtr shared_{appender_};  // owns it
};

LogCapture::LogCapture(const std::string& loggerName)
    : private_(std::make_unique<Private>(loggerName)) {
}

LogCapture::~LogCapture() = default;

std::vector<std::string> LogCapture::lines() const {
    return private_->lines();
}

bool LogCapture::contains(const std::string& text) const {
    const auto all = lines();
    return std::any_of(all.begin(), all.end(),
                       [&text](const std::string& line) { return line.find(text) != line.npos; });
}
