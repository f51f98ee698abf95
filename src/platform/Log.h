#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace platform {

/// The platform's logger; each source file has its own handle to it.
static const log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("Platform"));

}  // namespace platform
