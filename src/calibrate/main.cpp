#include "calibrate/CommandLine.h"
#include "calibrate/Errors.h"
#include "calibrate/Interruption.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <iostream>

namespace {

std::size_t terminalColumns(int descriptor) {
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

int main(int argc, char* argv[]) {
    const calibrate::Interruption interruption;
    const calibrate::Environment environment{std::cout,
                                             std::cerr,
                                             STDIN_FILENO,
                                             isatty(STDIN_FILENO) != 0,
                                             isatty(STDERR_FILENO) != 0,
                                             terminalColumns(STDERR_FILENO),
                                             interruption.token()};
    const int code = calibrate::runCommandLine({argv + 1, argv + argc}, environment);
    const int signal = interruption.signal();
    return code == calibrate::kExitInterrupted && signal != 0 ? 128 + signal : code;
}
