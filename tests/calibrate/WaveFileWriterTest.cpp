#include "calibrate/Errors.h"
#include "calibrate/WaveFileWriter.h"
#include "calibrate/support/SoundFiles.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <numeric>

namespace calibrate {
namespace {

class WaveFileWriterTest : public testing::Test {
protected:
    std::filesystem::path path(const std::string& name) const { return scratch_.path() / name; }

    static std::vector<float> ramp(std::size_t count) {
        std::vector<float> samples(count);
        std::iota(samples.begin(), samples.end(), 0.0F);
        return samples;
    }

private:
    ScratchDirectory scratch_;
};

TEST_F(WaveFileWriterTest, WritesEverySampleInOrder) {
    const auto samples = ramp(100001);
    WaveFileWriter writer(path("a.wav"), 44100, false);
    for (std::size_t i = 0; i < samples.size(); i += 128) {
        const std::size_t count = std::min<std::size_t>(128, samples.size() - i);
        writer.write(std::span(samples).subspan(i, count));
    }
    writer.close();

    const auto file = readSoundFile(path("a.wav"));
    EXPECT_EQ(file.samples, samples);
    EXPECT_EQ(file.sampleRate, 44100);
    EXPECT_EQ(file.channels, 1);
}

TEST_F(WaveFileWriterTest, TheFileIsValidWhileItGrows) {
    WaveFileWriter writer(path("a.wav"), 48000, false);
    writer.write(ramp(10000));

    EXPECT_EQ(readSoundFile(path("a.wav")).samples, ramp(10000));
}

TEST_F(WaveFileWriterTest, WhoForgetsToCloseLosesNothing) {
    { WaveFileWriter(path("a.wav"), 48000, false).write(ramp(10)); }

    EXPECT_EQ(readSoundFile(path("a.wav")).samples, ramp(10));
}

TEST_F(WaveFileWriterTest, NothingOfTheTimeAtWhichItWasWrittenIsInTheFile) {
    WaveFileWriter writer(path("a.wav"), 48000, false);
    writer.write(ramp(10));
    writer.close();

    std::ifstream file(path("a.wav"), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    EXPECT_THAT(bytes, testing::AllOf(testing::HasSubstr("data"),
                                      testing::Not(testing::HasSubstr("PEAK"))));
}

TEST_F(WaveFileWriterTest, AnEmptyFileIsAFile) {
    WaveFileWriter(path("a.wav"), 48000, false).close();

    EXPECT_TRUE(readSoundFile(path("a.wav")).samples.empty());
}

TEST_F(WaveFileWriterTest, ReplacesOnlyWhatItMay) {
    writeText(path("a.wav"), std::string(100000, 'x'));
    EXPECT_THROW(WaveFileWriter(path("a.wav"), 48000, false), BadInput);

    WaveFileWriter writer(path("a.wav"), 48000, true);
    writer.write(ramp(3));
    writer.close();
    EXPECT_EQ(readSoundFile(path("a.wav")).samples, ramp(3));
}

TEST_F(WaveFileWriterTest, RefusesMoreThanAWavFileHolds) {
    WaveFileWriter writer(path("a.wav"), 48000, false);
    const float sample = 0;
    // Never read: the length alone is too much.
    EXPECT_THROW(writer.write({&sample, WaveFileWriter::kMaxSamples + 1}), OutputError);
}

TEST_F(WaveFileWriterTest, ADirectoryThatIsMissingIsToldEarly) {
    EXPECT_THROW(WaveFileWriter::check(path("missing/a.wav"), true), BadInput);
    EXPECT_NO_THROW(WaveFileWriter::check(path("a.wav"), false));
    EXPECT_FALSE(std::filesystem::exists(path("a.wav")));
}

}  // namespace
}  // namespace calibrate
