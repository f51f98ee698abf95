#include "host/Logging.h"

#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace host {

namespace {

constexpr const char* kPattern = "%D{%Y-%m-%d %H:%M:%S.%q} %-5p %c: %m%n";

/// The appender itself only prints that it failed, and goes on without a file.
void requireWritable(const std::string& file) {
    if (!std::ofstream(file, std::ios::app))
        throw std::runtime_error(
            file + ": the log cannot be written: " + std::generic_category().message(errno));
}

log4cplus::SharedAppenderPtr newAppender(const LogSettings& settings) {
    constexpr bool kToStandardError = true;
    constexpr bool kFlushEachLine = true;
    if (settings.file.empty())
        return log4cplus::SharedAppenderPtr(
            new log4cplus::ConsoleAppender(kToStandardError, kFlushEachLine));
    requireWritable(settings.file);
    return log4cplus::SharedAppenderPtr(
        new log4cplus::FileAppender(settings.file, std::ios::app, kFlushEachLine));
}

}  // namespace

Logging::Logging(const LogSettings& settings) {
    const auto appender = newAppender(settings);
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>(kPattern));
    auto root = log4cplus::Logger::getRoot();
    root.setLogLevel(log4cplus::getLogLevelManager().fromString(settings.level));
    root.addAppender(appender);
}

}  // namespace host
