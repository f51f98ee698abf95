#include "segment/ImageJson.h"
#include "segment/ImageText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace segment {
namespace {

TEST(ImageJson, CarriesTapsExactly) {
    DiracConfiguration image;
    auto& channel = image.groups[1][3];
    channel.tapCount = 3;
    channel.taps = {0.1F, std::nextafter(1.0F, 2.0F), -std::numeric_limits<float>::denorm_min()};
    const auto text = imageJson(image).dump();
    const auto taps = nlohmann::json::parse(text)["groups"][1]["channels"][3]["taps"];
    ASSERT_EQ(taps.size(), 3U);
    for (std::size_t tap = 0; tap < 3; ++tap)
        EXPECT_EQ(static_cast<float>(taps[tap].get<double>()), channel.taps[tap]);
}

TEST(ImageJson, DescribesTheWholeImage) {
    DiracConfiguration image;
    image.timeStamp = 5;
    image.speakerCount = 1;
    image.speakers[0] = {4, 2};
    image.subSamplerSizes[0] = 12;
    image.groups[0][0].biquadCount = 1;
    image.groups[0][0].biquads[0] = {1, 2, 3, 4};
    image.bassControl[1][2].cellCount = 1;
    image.bassControl[1][2].cells[0].gain = -2;
    const auto json = imageJson(image);
    EXPECT_EQ(json["timeStamp"], 5);
    EXPECT_EQ(json["bypass"], true);
    EXPECT_EQ(json["speakers"].dump(), R"([{"type":4,"groupId":2}])");
    EXPECT_EQ(json["groups"].size(), 2U);
    EXPECT_EQ(json["groups"][1]["sampleRate"], 44100);
    EXPECT_EQ(json["groups"][0]["channels"].size(), 10U);
    EXPECT_EQ(json["groups"][0]["channels"][0]["biquads"].dump(),
              R"([{"a1":1.0,"a2":2.0,"b0":3.0,"b1":4.0}])");
    EXPECT_EQ(json["subSampler"][0].dump(), R"({"sampleRate":88200,"bytes":12})");
    EXPECT_EQ(json["bassControl"][1][2]["cells"][0]["gain"], -2);
    EXPECT_EQ(json["digest"], imageDigestText(image));
}

TEST(ImageJson, ListsEndAtTheirCapacity) {
    DiracConfiguration image;
    image.speakerCount = 1000;
    image.groups[0][0].tapCount = 1000000;
    image.bassControl[0][0].cellCount = 1000;
    const auto json = imageJson(image);
    EXPECT_EQ(json["speakers"].size(), 10U);
    EXPECT_EQ(json["groups"][0]["channels"][0]["taps"].size(), 1024U);
    EXPECT_EQ(json["groups"][0]["channels"][0]["tapCount"], 1000000);
    EXPECT_EQ(json["bassControl"][0][0]["cells"].size(), 5U);
}

TEST(ResponseJson, SilenceIsNull) {
    const auto json = responseJson({{100, -std::numeric_limits<double>::infinity(), 0, 0}});
    EXPECT_EQ(json.dump(),
              R"([{"frequency":100.0,"magnitude":null,"phase":0.0,"groupDelay":0.0}])");
}

}  // namespace
}  // namespace segment
