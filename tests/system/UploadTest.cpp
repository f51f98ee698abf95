// Correction filters of real rooms, from the file to the DSP: vesk-calibrate uploads them, and
// vesk-segment must give back the very numbers of the file.

#include "system/DeviceTest.h"

#include <sndfile.hh>

#include <cstring>
#include <filesystem>

namespace {

using testing::HasSubstr;

std::filesystem::path filterFile(const std::string& name) {
    const char* const data = std::getenv("VESK_TEST_DATA");
    return std::filesystem::path(data ? data : VESK_DEFAULT_TEST_DATA) / "filters" / name;
}

/// The taps of one channel of a file.
std::vector<float> tapsOfWav(const std::filesystem::path& path, int channel) {
    SndfileHandle file(path.string());
    const auto channels = static_cast<std::size_t>(file.channels());
    std::vector<float> interleaved(static_cast<std::size_t>(file.frames()) * channels);
    file.readf(interleaved.data(), file.frames());
    std::vector<float> taps;
    for (auto i = static_cast<std::size_t>(channel); i < interleaved.size(); i += channels)
        taps.push_back(interleaved[i]);
    return taps;
}

std::vector<float> floatsOf(const std::string& bytes) {
    std::vector<float> floats(bytes.size() / sizeof(float));
    std::memcpy(floats.data(), bytes.data(), floats.size() * sizeof(float));
    return floats;
}

class UploadTest : public DeviceTest {
protected:
    void SetUp() override {
        if (!exists(filterFile("")))
            GTEST_SKIP() << "no " << filterFile("");
        start();
    }

    ProcessResult upload(int slot, std::vector<std::string> files) {
        std::vector<std::string> arguments{"upload", "--slot", std::to_string(slot), "--activate"};
        arguments.insert(arguments.end(), files.begin(), files.end());
        return calibrate(arguments);
    }

    std::vector<float> tapsInSegment(int channel, int variant) const {
        const ProcessResult taps = segmentTool(
            {"taps", std::to_string(channel), "--variant", std::to_string(variant), "--raw"});
        EXPECT_EQ(taps.exitCode, 0) << taps.errors;
        return floatsOf(taps.output);
    }

    bool awaitTaps(int channel, int variant, const std::vector<float>& taps) const {
        return eventually([&] { return tapsInSegment(channel, variant) == taps; });
    }
};

struct StereoFile {
    const char* name;
    std::size_t taps;
    int variant;  ///< whose numbers are the file's, the other one is resampled
};

class UploadStereoTest : public UploadTest, public testing::WithParamInterface<StereoFile> {};

TEST_P(UploadStereoTest, givesTheDspTheNumbersOfTheFile) {
    const auto file = filterFile(GetParam().name);
    const ProcessResult uploaded = upload(2, {file.string()});
    ASSERT_EQ(uploaded.exitCode, 0) << uploaded.errors;
    for (const int channel : {0, 1}) {
        const auto taps = tapsOfWav(file, channel);
        ASSERT_EQ(taps.size(), GetParam().taps);
        EXPECT_TRUE(awaitTaps(channel, GetParam().variant, taps)) << "channel " << channel;
    }
    EXPECT_EQ(image()->bypass, 0);
}

INSTANTIATE_TEST_SUITE_P(Files, UploadStereoTest,
                         testing::Values(StereoFile{"living-room-48k-1000.wav", 1000, 48000},
                                         StereoFile{"living-room-44k1-919.wav", 919, 44100},
                                         StereoFile{"short-48k-3.wav", 3, 48000}),
                         [](const auto& instance) {
                             return "taps" + std::to_string(instance.param.taps);
                         });

TEST_F(UploadTest, rawFilesGiveTheDspTheirNumbers) {
    const auto left = filterFile("living-room-48k-1000-left.f32");
    const auto right = filterFile("living-room-48k-1000-right.f32");
    const ProcessResult uploaded = upload(0, {"--rate", "48000", left.string(), right.string()});
    ASSERT_EQ(uploaded.exitCode, 0) << uploaded.errors;
    EXPECT_TRUE(awaitTaps(0, 48000, floatsOf(readFile(left))));
    EXPECT_TRUE(awaitTaps(1, 48000, floatsOf(readFile(right))));
}

TEST_F(UploadTest, oneFileForEachSampleRateKeepsTheNumbersOfBoth) {
    const auto base = filterFile("living-room-48k-1000.wav");
    const auto other = filterFile("living-room-44k1-919.wav");
    const ProcessResult uploaded = upload(0, {base.string(), other.string()});
    ASSERT_EQ(uploaded.exitCode, 0) << uploaded.errors;
    for (const int channel : {0, 1}) {
        EXPECT_TRUE(awaitTaps(channel, 48000, tapsOfWav(base, channel))) << channel;
        EXPECT_TRUE(awaitTaps(channel, 44100, tapsOfWav(other, channel))) << channel;
    }
}

TEST_F(UploadTest, aFilterThatIsTooLongIsRefusedAndNothingIsStored) {
    const auto file = filterFile("too-long-48k-65536.wav").string();
    const ProcessResult refused = upload(1, {file, file});
    EXPECT_NE(refused.exitCode, 0);
    EXPECT_THAT(refused.errors, HasSubstr("65536"));
    EXPECT_THAT(refused.errors, HasSubstr("1000"));
    EXPECT_TRUE(tree().value(kSlotsSettings).at("slots_").empty());
    EXPECT_EQ(image()->bypass, 1);
}

}  // namespace
