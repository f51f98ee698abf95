#include "platform/alsa/SampleConversion.h"

#include <gmock/gmock.h>

#include <cstring>
#include <vector>

using testing::ElementsAre;

namespace {

const std::vector<std::int32_t> kSamples{0, 1 << 30, -(1 << 30), 2147483647, -2147483647 - 1};

std::vector<std::byte> converted(snd_pcm_format_t format, std::span<const std::int32_t> samples) {
    const auto size = static_cast<std::size_t>(snd_pcm_format_physical_width(format)) / 8;
    std::vector<std::byte> bytes(samples.size() * size);
    platform::converterTo(format)(samples, bytes.data());
    return bytes;
}

template <typename Sample>
std::vector<Sample> convertedTo(snd_pcm_format_t format, std::span<const std::int32_t> samples) {
    const auto bytes = converted(format, samples);
    std::vector<Sample> result(bytes.size() / sizeof(Sample));
    std::memcpy(result.data(), bytes.data(), bytes.size());
    return result;
}

}  // namespace

TEST(SampleConversionTest, TheMostExactFormatComesFirst) {
    EXPECT_THAT(platform::convertibleFormats(),
                ElementsAre(SND_PCM_FORMAT_S32_LE, SND_PCM_FORMAT_S24_3LE, SND_PCM_FORMAT_FLOAT_LE,
                            SND_PCM_FORMAT_S16_LE));
}

TEST(SampleConversionTest, S32StaysAsItIs) {
    EXPECT_EQ(convertedTo<std::int32_t>(SND_PCM_FORMAT_S32_LE, kSamples), kSamples);
}

TEST(SampleConversionTest, S24HasThreeBytesLittleEndian) {
    const auto bytes = converted(SND_PCM_FORMAT_S24_3LE, std::vector<std::int32_t>{0x12345600});
    EXPECT_THAT(bytes, ElementsAre(std::byte{0x56}, std::byte{0x34}, std::byte{0x12}));
}

TEST(SampleConversionTest, S24IsRoundedAndDoesNotWrap) {
    const auto bytes = converted(SND_PCM_FORMAT_S24_3LE,
                                 std::vector<std::int32_t>{0x17F, 0x180, 2147483647, -128, -129});
    const auto sample = [&bytes](std::size_t i) {
        std::int32_t value = 0;
        std::memcpy(reinterpret_cast<std::byte*>(&value) + 1, &bytes[3 * i], 3);
        return value >> 8;
    };
    EXPECT_EQ(sample(0), 1);
    EXPECT_EQ(sample(1), 2);
    EXPECT_EQ(sample(2), 0x7FFFFF);
    EXPECT_EQ(sample(3), 0);
    EXPECT_EQ(sample(4), -1);
}

TEST(SampleConversionTest, S16IsRoundedAndDoesNotWrap) {
    EXPECT_THAT(convertedTo<std::int16_t>(SND_PCM_FORMAT_S16_LE, kSamples),
                ElementsAre(0, 16384, -16384, 32767, -32768));
    EXPECT_THAT(convertedTo<std::int16_t>(SND_PCM_FORMAT_S16_LE,
                                          std::vector<std::int32_t>{0x7FFF, 0x8000, -0x8001}),
                ElementsAre(0, 1, -1));
}

TEST(SampleConversionTest, FloatHasFullScaleOne) {
    EXPECT_THAT(convertedTo<float>(SND_PCM_FORMAT_FLOAT_LE, kSamples),
                ElementsAre(0.0F, 0.5F, -0.5F, 1.0F, -1.0F));
}
