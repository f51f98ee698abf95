#include "tree/CommandLine.h"
#include "tree/Errors.h"
#include "tree/Verbs.h"

#include <iostream>

namespace {

constexpr int kRefused = 1;
constexpr int kUnreachable = 3;

int fail(const std::exception& error, int exitCode) {
    std::cerr << "vesk-tree: " << error.what() << '\n';
    return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
    const auto parsed = tree::parseCommandLine(argc, argv);
    if (!parsed.command)
        return parsed.exitCode;
    try {
        tree::run(*parsed.command, std::cout);
    } catch (const tree::UnreachableError& error) {
        return fail(error, kUnreachable);
    } catch (const std::exception& error) {
        return fail(error, kRefused);
    }
    return std::cout.flush() ? 0 : kRefused;
}
