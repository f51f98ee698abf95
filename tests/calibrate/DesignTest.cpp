#include "calibrate/Errors.h"
#include "calibrate/support/CommandFixture.h"
#include "calibrate/support/FullDisk.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <fstream>
#include <limits>

namespace calibrate {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace fs = std::filesystem;

/// The verb as it is typed; what it designs is tested beside it.
class DesignTest : public CommandFixture {
protected:
    std::string folder() const { return path("out"); }

    int design(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"design", "-o", folder()});
        return runBare(arguments);
    }

    std::string stereo() const {
        return wav("stereo.wav", 48'000, {decayingFilter(4'800, 1), decayingFilter(4'800, 2)});
    }

    void expectRefused(const std::vector<std::string>& arguments, const std::string& saying) {
        EXPECT_EQ(design(arguments), kExitUsage);
        EXPECT_THAT(errors(), HasSubstr(saying));
        EXPECT_FALSE(fs::exists(folder()));
    }

    /// The same for a file with these samples.
    void expectFileRefused(int sampleRate, const std::vector<double>& samples,
                           const std::string& saying) {
        expectRefused({wav("room.wav", sampleRate, {samples})}, saying);
    }
};

TEST_F(DesignTest, WritesFiltersWithoutADevice) {
    ASSERT_EQ(design({stereo()}), kExitOk) << errors();

    for (const auto* name : {"design.json", "stereo-0-48000.wav", "stereo-1-44100-fir.wav",
                             "stereo-1-48000-response.txt", "stereo-0-before.txt"})
        EXPECT_TRUE(fs::exists(fs::path(folder()) / name)) << name;
    EXPECT_THAT(output(), HasSubstr("'vesk-calibrate upload --slot N " + folder() +
                                    "/design.json' stores them in a device"));
    EXPECT_THAT(device_.calls(), IsEmpty());
}

TEST_F(DesignTest, ANameThatIsNoUtf8IsStillWritten) {
    ASSERT_EQ(design({stereo(), "--name", "a\xff", "--name", "b"}), kExitOk) << errors();

    const auto json = nlohmann::json::parse(std::ifstream(folder() + "/design.json"));
    EXPECT_THAT(json["speakers"], SizeIs(2));
}

TEST_F(DesignTest, SpeakersOfOneNameHaveFilesOfTheirOwn) {
    const auto response = decayingFilter(4'800, 1);
    const auto file = wav("three.wav", 48'000, {response, response, response});
    ASSERT_EQ(design({file, "--rate", "48000", "--name", "x-2", "--name", "x", "--name", "x"}),
              kExitOk)
        << errors();

    for (const auto* name : {"x-48000.wav", "x-2-48000.wav", "x-2-2-48000.wav"})
        EXPECT_TRUE(fs::exists(fs::path(folder()) / name)) << name;
}

// ---- Bad input ----------------------------------------------------------------------------------

TEST_F(DesignTest, WavsOfDifferentRatesAreRefused) {
    expectRefused({wav("left.wav", 48'000, {decayingFilter(4'800, 1)}),
                   wav("right.wav", 44'100, {decayingFilter(4'800, 2)})},
                  "right: all responses need the same sample rate");
}

TEST_F(DesignTest, AWavOfARateThatTellsNothingIsRefused) {
    expectFileRefused(4'000, decayingFilter(4'000, 1),
                      "room.wav: its sample rate of 4000 Hz is no use");
}

TEST_F(DesignTest, WavsOfWrongLengthAreRefused) {
    expectFileRefused(48'000, {0.5, 0.1}, "room: the response is shorter than 10 ms");
    expectFileRefused(8'000, std::vector<double>(8'000 * 601, 0.1),
                      "room.wav: is too long for a measurement");
    expectFileRefused(48'000, {}, "room.wav: holds no sound");
}

TEST_F(DesignTest, WavsThatHoldNoResponseAreRefused) {
    expectFileRefused(48'000, std::vector<double>(4'800), "room: the response is silent");
    auto samples = decayingFilter(4'800, 1);
    samples[7] = std::numeric_limits<double>::quiet_NaN();
    expectFileRefused(48'000, samples, "room.wav: frame 7 holds no number");
}

TEST_F(DesignTest, FilesThatAreNoSoundAreRefused) {
    expectRefused({path("missing.wav")}, "missing.wav: no such file");
    writeText(path("rubbish.wav"), "RIFF and rubbish");
    expectRefused({path("rubbish.wav")}, "rubbish.wav: ");
    const std::string whole = stereo();
    fs::resize_file(whole, 30);
    expectRefused({whole}, "stereo.wav: ");
}

TEST_F(DesignTest, ChannelsThatAreNoPositionsAreRefused) {
    expectRefused(
        {stereo(), wav("left.wav", 48'000, {decayingFilter(4'800, 1)}), "--positions", "2"},
        "the files hold 3 channels, which are not the same speakers at 2 positions");
    expectRefused({stereo(), "--name", "Left"}, "there are 2 speakers and 1 name");
    expectRefused({stereo(), "--subwoofer", "2"}, "there is no speaker 2; they count from 0");
}

TEST_F(DesignTest, RubbishInTargetAndCalibrationFilesIsTold) {
    writeText(path("rubbish.txt"), "20 0\n30 loud\n");
    for (const auto* option : {"--target", "--microphone"})
        expectRefused({stereo(), option, path("rubbish.txt")},
                      "rubbish.txt, line 2: \"loud\" is no level");
}

TEST_F(DesignTest, CapacitiesOfNothingAreRefused) {
    expectRefused({stereo(), "--taps", "0"}, "the device holds no filter taps at 48 kHz");
    expectRefused({stereo(), "--rate", "0"}, "a filter at 0 Hz cannot be designed");
}

TEST_F(DesignTest, LimitsThatAreNoneAreRefused) {
    expectRefused({stereo(), "--headroom", "nan"}, "\"nan\" is no number from -40.0 to 30.0");
    expectRefused({stereo(), "--headroom", "-400"}, "\"-400\" is no number from -40.0 to 30.0");
    expectRefused({stereo(), "--crossover", "nan"}, "\"nan\" is no number");
    expectRefused({stereo(), "--smoothing", "nan"}, "\"nan\" is no number");
    expectRefused({stereo(), "--positions", "-1"}, "\"-1\" is no number from 1.0 to 64.0");
    expectRefused({stereo(), "--rate", "48000", "--rate", "48000"}, "--rate 48000 is given twice");
    expectRefused({stereo(), "--target", "hous"},
                  "\"hous\" is no target: neither flat nor house nor a file");
}

TEST_F(DesignTest, AResponseFarFromFullScaleIsRefused) {
    for (const auto& [factor, why] : {std::pair(1e300, "the response is far above full scale"),
                                      std::pair(1e-30, "the response is silent")}) {
        auto samples = decayingFilter(4'800, 1);
        for (double& sample : samples)
            sample *= factor;
        writeSoundFile(path("room.wav"), 48'000, {samples}, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
        expectRefused({path("room.wav")}, why);
    }
}

TEST_F(DesignTest, AFullDiskIsTold) {
    const std::string room = stereo();
    {
        const FullDisk disk(20'000);
        EXPECT_EQ(design({room}), kExitDevice);
    }
    EXPECT_THAT(errors(), AllOf(HasSubstr(folder()), HasSubstr("cannot be written: File too "
                                                               "large")));
    EXPECT_FALSE(fs::exists(folder() + "/design.json"));
}

TEST_F(DesignTest, AFolderThatCannotBeMadeIsTold) {
    writeText(folder(), "a file");
    EXPECT_EQ(design({stereo()}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("out: cannot be written"));
}

}  // namespace
}  // namespace calibrate
