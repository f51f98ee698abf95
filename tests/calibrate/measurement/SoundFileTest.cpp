#include "calibrate/Errors.h"
#include "calibrate/measurement/SoundFile.h"
#include "calibrate/support/SoundFiles.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <string>

using namespace calibrate::measurement;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string refusal(const std::filesystem::path& path) {
    try {
        (void)calibrate::measurement::readSoundFile(path);
    } catch (const calibrate::BadInput& error) {
        return error.what();
    }
    return "was read";
}

}  // namespace

TEST(SoundFile, readsWhatItWrote) {
    const ScratchDirectory scratch;
    const auto path = scratch.path() / "sound.wav";
    calibrate::measurement::writeSoundFile(path, {44'100, {{0.5, 1.5}, {-0.25, 0}}});
    const auto file = calibrate::measurement::readSoundFile(path);
    EXPECT_EQ(file.sampleRate, 44'100);
    EXPECT_EQ(file.channels, (std::vector<std::vector<double>>{{0.5, 1.5}, {-0.25, 0}}));
    EXPECT_EQ(impulseResponses(file).size(), 2U);
}

TEST(SoundFile, holdsNothingOfTheTimeAtWhichItWasWritten) {
    const ScratchDirectory scratch;
    const auto path = scratch.path() / "sound.wav";
    calibrate::measurement::writeSoundFile(path, {44'100, {{0.5, 1.5}}});
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    EXPECT_THAT(bytes, AllOf(HasSubstr("data"), Not(HasSubstr("PEAK"))));
}

TEST(SoundFile, saysWhatIsWrong) {
    const ScratchDirectory scratch;
    EXPECT_THAT(refusal(scratch.path() / "none.wav"), HasSubstr("none.wav: no such file"));
    writeText(scratch.path() / "text.wav", "rubbish");
    EXPECT_THAT(refusal(scratch.path() / "text.wav"), HasSubstr("text.wav: "));
    writeWav(scratch.path() / "nan.wav", 48'000, {{0, std::numeric_limits<double>::quiet_NaN()}});
    EXPECT_THAT(refusal(scratch.path() / "nan.wav"), HasSubstr("frame 1 holds no number"));
    writeWav(scratch.path() / "slow.wav", 4'000, {{0, 1}});
    EXPECT_THAT(refusal(scratch.path() / "slow.wav"), HasSubstr("4000 Hz"));
}

TEST(SoundFile, unwritableFolderIsAnError) {
    EXPECT_THROW(calibrate::measurement::writeSoundFile("/nonexistent/x.wav", {48'000, {{1}}}),
                 std::runtime_error);
}
