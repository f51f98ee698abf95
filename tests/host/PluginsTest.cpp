#include "host/Plugins.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace host {
namespace {

TEST(PluginPaths, AreMadeAbsolute) {
    const auto relative = std::filesystem::relative(VESK_TEST_PLUGIN).string();
    EXPECT_THAT(pluginPaths({relative}), testing::ElementsAre(VESK_TEST_PLUGIN));
}

TEST(PluginPaths, KeepTheirOrder) {
    EXPECT_THAT(pluginPaths({VESK_TEST_PLUGIN_FAILING, VESK_TEST_PLUGIN}),
                testing::ElementsAre(VESK_TEST_PLUGIN_FAILING, VESK_TEST_PLUGIN));
}

TEST(PluginPaths, AMissingFileIsNamed) {
    EXPECT_THAT(
        [] { pluginPaths({"missing.so"}); },
        testing::ThrowsMessage<std::runtime_error>("missing.so: there is no such worker plug-in"));
}

TEST(PluginPaths, TheModuleIsLookedForBesideTheExecutable) {
    EXPECT_THAT([] { pluginPaths({}); },
                testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr(
                    "libvesk_dirac.so: there is no such worker plug-in; give one with --worker")));
}

}  // namespace
}  // namespace host
