#include "calibrate/AlsaCapture.h"
#include "calibrate/Errors.h"
#include "roomsim/AlsaPcm.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace calibrate {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class AlsaCaptureTest : public testing::Test {
protected:
    AlsaCaptureTest() {
        room_["pace"] = 4;
        room_["noise"] = {{"levelDb", -20}};
    }

    void enter() {
        files_.emplace(room_);
        files_->addWav("responses.wav", 48000, {{1.0F}});
        alsa_.emplace(*files_);
    }

    /// What a failure says; the capture of `count` samples otherwise succeeds.
    template <class Failure>
    static std::string refusal(const std::string& name, unsigned channel, unsigned rate,
                               std::size_t count = 1) {
        try {
            AlsaCapture capture(name, channel, {rate});
            capture.start();
            recorded(capture, count);
        } catch (const Failure& failure) {
            return failure.what();
        }
        return "no failure";
    }

    static std::vector<float> recorded(AlsaCapture& capture, std::size_t count) {
        std::vector<float> all;
        std::vector<float> some;
        while (all.size() < count) {
            capture.read(some, std::chrono::seconds(10));
            if (some.empty())
                throw std::runtime_error("nothing for 10 s");
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }

    nlohmann::json room_ = measuredRoom(1);

private:
    std::optional<RoomFiles> files_;
    std::optional<AlsaRoom> alsa_;
};

TEST_F(AlsaCaptureTest, deliversWhatTheMicrophoneHears) {
    enter();
    AlsaCapture capture("room", 0, {48'000});
    EXPECT_EQ(capture.sampleRate(), 48'000U);
    capture.start();
    double power = 0;
    const auto samples = recorded(capture, 24'000);
    for (const float sample : samples)
        power += static_cast<double>(sample) * static_cast<double>(sample);
    EXPECT_NEAR(10 * std::log10(power / static_cast<double>(samples.size())), -20, 0.5);
}

TEST_F(AlsaCaptureTest, recordsAgainAfterItsEnd) {
    enter();
    AlsaCapture capture("room", 0, {48'000});
    for (int i = 0; i < 3; ++i) {
        capture.start();
        EXPECT_GE(recorded(capture, 4'800).size(), 4'800U);
        capture.stop();
    }
}

TEST_F(AlsaCaptureTest, takesTheFirstRateThatIsOffered) {
    enter();
    EXPECT_EQ(AlsaCapture("room", 0, {8'000, 96'000, 48'000}).sampleRate(), 96'000U);
}

TEST_F(AlsaCaptureTest, aMicrophoneThatDoesNotExistIsToldOf) {
    enter();
    EXPECT_THAT(refusal<BadInput>("umik", 0, 48'000),
                AllOf(HasSubstr("the microphone \"umik\" cannot be opened"),
                      HasSubstr("'arecord -L' lists those there are")));
}

TEST_F(AlsaCaptureTest, aChannelThatDoesNotExistIsToldOf) {
    enter();
    EXPECT_THAT(refusal<BadInput>("room", 1, 48'000),
                HasSubstr("the microphone \"room\" has no channel 1: it has 1 channel"));
}

TEST_F(AlsaCaptureTest, ratesThatAreNotOfferedAreToldOf) {
    enter();
    EXPECT_THAT(refusal<BadInput>("room", 0, 8'000),
                HasSubstr("the microphone \"room\" offers 44.1 kHz to 192 kHz, but none of the "
                          "rates at which a room is measured"));
}

TEST_F(AlsaCaptureTest, aMicrophoneInUseIsToldOf) {
    enter();
    const AlsaCapture other("room", 0, {48'000});
    EXPECT_THAT(refusal<DeviceError>("room", 0, 48'000),
                HasSubstr("the microphone \"room\" is in use: end the program that records"));
}

TEST_F(AlsaCaptureTest, aMicrophoneThatIsUnpluggedIsToldOf) {
    room_["microphones"][0]["unpluggedAfterMs"] = 300;
    enter();
    EXPECT_THAT(refusal<DeviceError>("room", 0, 48'000, 480'000),
                AllOf(HasSubstr("the microphone \"room\" has stopped"),
                      HasSubstr("check that it is still plugged in")));
}

}  // namespace
}  // namespace calibrate
