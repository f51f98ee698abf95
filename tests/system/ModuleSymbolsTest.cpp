// What the module shows to the process that loads it, and what it needs from it.

#include "support/Subprocess.h"

#include <gmock/gmock.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// The names that `nm -D` lists, demangled and without arguments, in order.
std::vector<std::string> dynamicSymbols(const std::string& selection) {
    const ProcessResult listed =
        runProcess({VESK_NM, "-D", "--demangle", "--format=posix", selection, VESK_MODULE});
    EXPECT_EQ(listed.exitCode, 0) << listed.errors;
    std::vector<std::string> names;
    std::istringstream lines(listed.output);
    for (std::string line; std::getline(lines, line);)
        names.push_back(line.substr(0, line.find_first_of("( ")));
    return names;
}

TEST(ModuleSymbolsTest, onlyTheEntryPointAndTheStimulusGeneratorsAreExported) {
    EXPECT_THAT(dynamicSymbols("--defined-only"),
                ElementsAre("generateLogSweep", "generatePinkNoise", "worker_create"));
}

TEST(ModuleSymbolsTest, nothingOfTheReferencePlatformsInsidesIsNeeded) {
    const std::vector<std::string> needed = dynamicSymbols("--undefined-only");
    EXPECT_THAT(needed, Not(IsEmpty()));
    EXPECT_THAT(needed, testing::Each(Not(HasSubstr("platform::"))));
}

TEST(ModuleSymbolsTest, thePlatformIsFoundThroughItsInterfaces) {
    EXPECT_THAT(dynamicSymbols("--undefined-only"), testing::Contains(StartsWith("CMRoot")));
}

}  // namespace
