#include "calibrate/CorrectionArguments.h"

#include "calibrate/Between.h"
#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/design/SpeakerDesign.h"
#include "calibrate/design/Target.h"

#include <charconv>

namespace calibrate {
namespace {

[[noreturn]] void refuseRange(const std::string& text) {
    throw BadInput("\"" + printable(text) + "\" is no range; write it like 20..18000");
}

double numberIn(std::string_view text, const std::string& whole) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        refuseRange(whole);
    return value;
}

void readRange(const std::string& text, design::Limits& limits) {
    const auto dots = text.find("..");
    if (dots == std::string::npos)
        refuseRange(text);
    limits.lowest = numberIn(std::string_view(text).substr(0, dots), text);
    limits.highest = numberIn(std::string_view(text).substr(dots + 2), text);
}

}  // namespace

void addCorrectionOptions(CLI::App& command, CorrectionArguments& arguments) {
    auto& limits = arguments.system.correction.limits;
    command.add_option("--target", arguments.target, "flat, house or a file; default: flat")
        ->type_name("TARGET");
    command.add_option("--range", arguments.range, "What is corrected; default: 20..18000")
        ->type_name("LO..HI");
    command.add_option("--max-boost", limits.maxBoost, "Default: 6")->type_name("DB");
    command.add_option("--max-cut", limits.maxCut, "Default: 24")->type_name("DB");
    command.add_option("--headroom", limits.headroom, "Largest gain of all; default: 0")
        ->type_name("DB")
        ->check(between(-40, 30));
    command
        .add_option("--crossover", arguments.system.crossover,
                    "To the subwoofer, 0 for none; default: 80")
        ->type_name("HZ")
        ->check(between(0, 1000));
    command.add_flag("--no-align", arguments.keepAlignment, "Leave delays and levels alone");
}

design::SystemOptions systemOptions(const CorrectionArguments& arguments) {
    auto system = arguments.system;
    readRange(arguments.range, system.correction.limits);
    design::checkLimits(system.correction.limits);
    system.correction.target = design::readTarget(arguments.target);
    system.align = !arguments.keepAlignment;
    return system;
}

}  // namespace calibrate
