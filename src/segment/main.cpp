#include "segment/CommandLine.h"
#include "segment/SegmentReader.h"
#include "segment/Verbs.h"

#include <iostream>

int main(int argc, char** argv) {
    const auto parsed = segment::parseCommandLine(argc, argv);
    if (!parsed.command)
        return parsed.exitCode;
    try {
        segment::run(*parsed.command, std::cout);
    } catch (const segment::SegmentError& error) {
        std::cerr << "vesk-segment: " << error.what() << '\n';
        return 1;
    }
    return std::cout.flush() ? 0 : 1;
}
