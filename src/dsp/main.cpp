#include "dsp/CommandLine.h"
#include "dsp/Verbs.h"

#include <exception>
#include <iostream>
#include <sstream>
#include <string>

namespace {

/// Prints each line under the tool's name.
void printMessages(std::istringstream lines) {
    for (std::string line; std::getline(lines, line);)
        std::cerr << "vesk-dsp: " << line << '\n';
}

}  // namespace

int main(int argc, char** argv) {
    const auto parsed = dsp::parseCommandLine(argc, argv);
    if (!parsed.command)
        return parsed.exitCode;
    try {
        std::ostringstream messages;
        dsp::run(*parsed.command, messages);
        printMessages(std::istringstream(messages.str()));
    } catch (const std::exception& error) {
        std::cerr << "vesk-dsp: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
