#include "calibrate/CaptureFormat.h"

#include <gtest/gtest.h>

#include <vector>

namespace calibrate {
namespace {

float sampleOf(snd_pcm_format_t format, const std::vector<unsigned>& bytes) {
    std::vector<std::byte> frame;
    for (const unsigned byte : bytes)
        frame.push_back(static_cast<std::byte>(byte));
    for (const auto& one : kCaptureFormats)
        if (one.format == format)
            return one.sample(frame.data());
    throw std::runtime_error("no such format");
}

TEST(CaptureFormatTest, theMostExactFormatIsFirst) {
    EXPECT_EQ(kCaptureFormats.front().format, SND_PCM_FORMAT_S32_LE);
    EXPECT_EQ(kCaptureFormats.back().format, SND_PCM_FORMAT_S16_LE);
}

TEST(CaptureFormatTest, integersOf32Bits) {
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S32_LE, {0, 0, 0, 0x80}), -1.0F);
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S32_LE, {0, 0, 0, 0x40}), 0.5F);
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S32_LE, {0xFF, 0xFF, 0xFF, 0xFF}), -0x1p-31F);
}

TEST(CaptureFormatTest, floats) {
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_FLOAT_LE, {0, 0, 0x40, 0xBF}), -0.75F);
}

TEST(CaptureFormatTest, integersOf24BitsInThreeBytes) {
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S24_3LE, {0, 0, 0x80}), -1.0F);
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S24_3LE, {0, 0, 0x40}), 0.5F);
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S24_3LE, {0xFF, 0xFF, 0xFF}), -0x1p-23F);
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S24_3LE, {0xFF, 0xFF, 0x7F}), 1.0F - 0x1p-23F);
}

TEST(CaptureFormatTest, integersOf24BitsInFourBytesWithAnythingInTheFourth) {
    for (const unsigned fourth : {0U, 0x5AU, 0xFFU}) {
        EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S24_LE, {0, 0, 0x80, fourth}), -1.0F);
        EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S24_LE, {1, 0, 0, fourth}), 0x1p-23F);
    }
}

TEST(CaptureFormatTest, integersOf16Bits) {
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S16_LE, {0, 0x80}), -1.0F);
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S16_LE, {0, 0x40}), 0.5F);
    EXPECT_EQ(sampleOf(SND_PCM_FORMAT_S16_LE, {0xFF, 0xFF}), -0x1p-15F);
}

}  // namespace
}  // namespace calibrate
