#include "cli/Parse.h"

#include <iostream>
#include <string>

namespace cli {
namespace {

int report(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return app.exit(error);
    std::cerr << app.get_name() << ": " << error.what() << "\n\n" << app.help();
    return kUsageError;
}

std::string refuseNoKey(const std::string& text) {
    return text == "0" ? "0 is not the key of a segment" : "";
}

}  // namespace

std::optional<int> parse(CLI::App& app, int argc, const char* const* argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        return report(app, error);
    }
}

CLI::Validator segmentKey() {
    return CLI::Validator(&refuseNoKey, "INT");
}

}  // namespace cli
