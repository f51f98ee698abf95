#pragma once

#include "host/DescriptionFile.h"

#include <log4cplus/initializer.h>

namespace host {

/// The process's log while the object exists: one line a message with time, level and logger, to
/// standard error or appended to a file. Throws std::runtime_error when the file cannot be opened.
class Logging {
public:
    explicit Logging(const LogSettings& settings);

private:
    log4cplus::Initializer initializer_;
};

}  // namespace host
