#pragma once

#include "modules/dirac/Log.h"
#include "sdk/services/dbglog.h"

#include <sstream>
#include <string>

/// Where a scoped trace stands in the source.
struct TraceOrigin {
    const char* signature;
    const char* file;
    int line;
};

/// Logs "Enter " and "Leave " with the function's signature at TRACE level, at its construction and
/// destruction. Costs two level tests when TRACE is off. Use DIRAC_SCOPED_TRACE.
class ScopedTrace {
public:
    explicit ScopedTrace(const TraceOrigin& origin) : origin_(origin) {
        if (isEnabled())
            log("Enter ", "");
    }

    /// `describe(stream)` writes what follows the signature and ": ", if only nothing; called only
    /// when TRACE is on.
    template <typename Describe>
    ScopedTrace(const TraceOrigin& origin, const Describe& describe) : origin_(origin) {
        if (isEnabled())
            log("Enter ", ": " + textOf(describe));
    }

    ~ScopedTrace() {
        if (!hasLeft_ && isEnabled())
            log("Leave ", "");
    }

    ScopedTrace(const ScopedTrace&) = delete;
    ScopedTrace& operator=(const ScopedTrace&) = delete;

    /// Writes the "Leave " line now, with ": " and the text behind the signature.
    void leaveWith(const char* text) {
        hasLeft_ = true;
        if (isEnabled())
            log("Leave ", std::string(": ") + text);
    }

private:
    static bool isEnabled() { return logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL); }

    template <typename Describe>
    static std::string textOf(const Describe& describe) {
        std::ostringstream stream;
        describe(stream);
        return stream.str();
    }

    void log(const std::string& direction, const std::string& ending) const {
        const std::string line =
            direction + dbglog_scopedFunction(origin_.signature, "Dirac") + ending;
        logger.forcedLog(log4cplus::TRACE_LOG_LEVEL, line, origin_.file, origin_.line,
                         origin_.signature);
    }

    const TraceOrigin origin_;
    bool hasLeft_{false};
};

/// Traces the scope as `scopedTrace`. What is given is streamed behind the signature:
///
///     DIRAC_SCOPED_TRACE("Index " << index->value());
///
/// A macro, because only the preprocessor knows the signature of the function that it stands in,
/// and so that the text is formed only when TRACE is on.
#define DIRAC_SCOPED_TRACE(...)                                                              \
    ScopedTrace scopedTrace(TraceOrigin{__PRETTY_FUNCTION__, __FILE__, __LINE__} __VA_OPT__( \
        , [&](std::ostream& scopedTraceText) { scopedTraceText << __VA_ARGS__; }))
