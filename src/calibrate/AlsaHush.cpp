#include "calibrate/AlsaHush.h"

#include <cstdarg>

// The header forgets to say that its one function for this, too, is C.
extern "C" {
#include <alsa/error.h>
}

namespace calibrate {
namespace {

void ignore(const char* /*file*/, int /*line*/, const char* /*function*/, int /*error*/,
            const char* /*format*/, va_list /*arguments*/) {
}

}  // namespace

AlsaHush::AlsaHush() {
    snd_lib_error_set_local(&ignore);
}

AlsaHush::~AlsaHush() {
    snd_lib_error_set_local(nullptr);
}

}  // namespace calibrate
