// The ready-made devices.

#include "system/DeviceTest.h"

namespace {

struct ReadyMade {
    const char* description;
    std::size_t speakers;
};

class DescriptionTest : public DeviceTest, public testing::WithParamInterface<ReadyMade> {};

TEST_P(DescriptionTest, startsAndShowsItsTopology) {
    options().description = GetParam().description;
    start();
    const ProcessResult text = calibrate({"info"});
    EXPECT_EQ(text.exitCode, 0) << text.errors;
    const ProcessResult json = calibrate({"info", "--json"});
    ASSERT_EQ(json.exitCode, 0) << json.errors;
    EXPECT_EQ(nlohmann::json::parse(json.output).at("speakers").size(), GetParam().speakers);
}

TEST_P(DescriptionTest, takesAndPublishesADesignForAllItsSpeakers) {
    options().description = GetParam().description;
    const FilterDesign design = makeDesign({static_cast<int>(GetParam().speakers)}, 1);
    start();
    transfer(0, design);
    activate(0, design);
    EXPECT_EQ(image()->speakerCount, GetParam().speakers);
    EXPECT_EQ(device().stop().exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(All, DescriptionTest,
                         testing::Values(ReadyMade{"stereo", 2}, ReadyMade{"stereo-sub", 3},
                                         ReadyMade{"ten-channel", 10}),
                         [](const auto& instance) {
                             std::string name = instance.param.description;
                             std::erase(name, '-');
                             return name;
                         });

}  // namespace
