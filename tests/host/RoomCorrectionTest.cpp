#include "host/RoomCorrection.h"
#include "sdk/dldsp/DiracConfiguration.h"
#include "segment/TestSegment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace host {
namespace {

/// A filter that halves channel 1 at 48 kHz.
std::unique_ptr<DiracConfiguration> halvingImage() {
    auto image = std::make_unique<DiracConfiguration>();
    image->bypass = 0;
    image->groups[0][1].filterEnabled = 1;
    image->groups[0][1].taps[0] = 0.5F;
    return image;
}

TEST(RoomCorrection, PlayersAudioIsCorrectedAsTheSegmentSays) {
    TestSegment segment(unusedKey());
    segment.publish(*halvingImage());
    RoomCorrection correction(
        std::make_shared<dsp::Processor>(segment.key(), [](const std::string&) {}));
    correction.prepare({48000, 2});
    std::vector<std::int32_t> samples(1000, 1 << 24);
    correction.process(samples);
    EXPECT_EQ(samples[0], 1 << 24);
    EXPECT_NEAR(samples[1], 1 << 23, 4);
    EXPECT_NEAR(samples[999], 1 << 23, 4);
}

TEST(RoomCorrection, PlayerIsToldByHowMuchAudioIsDelayed) {
    RoomCorrection correction(
        std::make_shared<dsp::Processor>(unusedKey(), [](const std::string&) {}));
    for (const unsigned rate : {48000U, 96000U, 192'000U}) {
        correction.prepare({rate, 1});
        std::vector<std::int32_t> samples(4000);
        samples[0] = 1 << 30;
        correction.process(samples);
        const auto loudest = std::ranges::max_element(samples);
        EXPECT_EQ(correction.latency(), loudest - samples.begin()) << rate << " Hz";
    }
}

}  // namespace
}  // namespace host
