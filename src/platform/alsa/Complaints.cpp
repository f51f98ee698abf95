#include "platform/alsa/Complaints.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The header forgets to say that this one function, too, is C.
extern "C" {
#include <alsa/error.h>
}

namespace platform {

namespace {

std::string& text() {
    thread_local std::string first;
    return first;
}

void keep(const char* /*file*/, int /*line*/, const char* /*function*/, int /*error*/,
          const char* format, va_list arguments) {
    if (!text().empty())
        return;
    char line[300];
    std::vsnprintf(line, sizeof line, format, arguments);
    text() = line;
}

}  // namespace

Complaints::Complaints() {
    snd_lib_error_set_local(&keep);
}

Complaints::~Complaints() {
    snd_lib_error_set_local(nullptr);
    text().clear();
}

std::string Complaints::shown() {
    return text().empty() ? "" : " (" + text() + ")";
}

}  // namespace platform
