#include "roomsim/MicrophoneSignal.h"
#include "roomsim/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace roomsim {
namespace {

/// Speakers that play `signals` from frame 0 on, and are silent before and after.
MicrophoneSignal::ReadSpeakers playing(const Signals& signals) {
    return [&signals](std::int64_t frame, float* const* target, std::size_t count) {
        for (std::size_t speaker = 0; speaker < signals.size(); ++speaker) {
            for (std::size_t i = 0; i < count; ++i) {
                const std::int64_t place = frame + static_cast<std::int64_t>(i);
                const bool plays =
                    place >= 0 && place < static_cast<std::int64_t>(signals[speaker].size());
                target[speaker][i] =
                    plays ? signals[speaker][static_cast<std::size_t>(place)] : 0.0F;
            }
        }
    };
}

Signal rendered(MicrophoneSignal& microphone, std::int64_t from, std::size_t length,
                std::size_t piece, const Signals& signals) {
    Signal output(length);
    for (std::size_t done = 0; done < length; done += piece)
        microphone.render(from + static_cast<std::int64_t>(done), output.data() + done,
                          std::min(piece, length - done), playing(signals));
    return output;
}

const Signals kSignals{randomSignal(9000, 1), randomSignal(9000, 2)};
const Signals kResponses{randomResponse(5000, 3), randomResponse(4000, 4)};

TEST(MicrophoneSignal, IsTheConvolutionAfterTheLatency) {
    MicrophoneSignal microphone(kResponses, {48000, 48000, false, 0.0025});
    microphone.start(StreamClock(48000, 0.0, 0));
    const Signal expected = delayed(convolvedDirectly(kSignals, kResponses, 12000), 120, 12000);
    EXPECT_LT(worstErrorDb(rendered(microphone, 0, 12000, 128, kSignals), expected), -120.0);
}

TEST(MicrophoneSignal, BeginsInTheMiddleOfTheSoundWithItsReverberation) {
    const Signal whole = convolvedDirectly(kSignals, kResponses, 15000);
    MicrophoneSignal microphone(kResponses, {48000, 48000, false, 0.0});
    microphone.start(StreamClock(48000, 0.0, 7001 * flicksPerFrame(48000)));
    EXPECT_LT(worstErrorDb(rendered(microphone, 0, 5000, 480, kSignals),
                           Signal(whole.begin() + 7001, whole.begin() + 12001)),
              -120.0);
}

TEST(MicrophoneSignal, AJumpLosesNothingOfTheReverberation) {
    const Signal whole = convolvedDirectly(kSignals, kResponses, 15000);
    MicrophoneSignal microphone(kResponses, {48000, 48000, false, 0.0});
    microphone.start(StreamClock(48000, 0.0, 0));
    (void)rendered(microphone, 0, 1000, 480, kSignals);
    EXPECT_LT(worstErrorDb(rendered(microphone, 8000, 3000, 480, kSignals),
                           Signal(whole.begin() + 8000, whole.begin() + 11000)),
              -120.0);
}

/// What a sine on the speakers' grid is at the times of the capture clock.
void expectSine(unsigned int speakerRate, unsigned int captureRate, double driftPpm,
                double frequency, std::size_t piece) {
    constexpr double kLatency = 0.05;  // so that the signal is there before the first frame
    constexpr std::size_t kLength = 20'000;
    const Signals signals{sine(200'000, frequency / speakerRate)};
    MicrophoneSignal microphone({{1.0F}}, {speakerRate, captureRate, driftPpm != 0.0, kLatency});
    const StreamClock clock(captureRate, driftPpm, kFlicksPerSecond / 10);
    microphone.start(clock);
    const Signal output = rendered(microphone, 0, kLength, piece, signals);
    Signal expected(kLength);
    for (std::size_t n = 0; n < kLength; ++n) {
        const double time =
            clock.exactTimeOf(static_cast<std::int64_t>(n)) / kFlicksPerSecond - kLatency;
        expected[n] = static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * frequency * time));
    }
    EXPECT_LT(worstErrorDb(output, expected), -90.0)
        << speakerRate << " to " << captureRate << ", " << driftPpm << " ppm, " << frequency;
}

TEST(MicrophoneSignal, ADriftingClockSeesTheSoundBetweenTheSamples) {
    for (const double frequency : {100.0, 1000.0, 10'000.0, 19'000.0}) {
        expectSine(48000, 48000, 100.0, frequency, 128);
        expectSine(48000, 48000, -1000.0, frequency, 4096);
    }
}

TEST(MicrophoneSignal, AnotherCaptureRateIsConverted) {
    for (const double frequency : {100.0, 1000.0, 10'000.0, 18'000.0}) {
        expectSine(96000, 48000, 0.0, frequency, 480);
        expectSine(44100, 48000, 0.0, frequency, 480);
        expectSine(192000, 44100, 50.0, frequency, 333);
    }
}

TEST(MicrophoneSignal, ALowerCaptureRateHearsNothingAboveItsNyquistFrequency) {
    const Signals signals{sine(100'000, 30'000.0 / 96000)};
    MicrophoneSignal microphone({{1.0F}}, {96000, 48000, false, 0.05});
    microphone.start(StreamClock(48000, 0.0, kFlicksPerSecond / 10));
    EXPECT_LT(rmsDb(rendered(microphone, 0, 10'000, 480, signals)), -100.0);
}

TEST(MicrophoneSignal, ReadsNothingThatIsNotPlayedYet) {
    for (const unsigned int captureRate : {44100U, 48000U, 96000U}) {
        const StreamClock clock(captureRate, 500.0, kFlicksPerSecond);
        MicrophoneSignal microphone({Signal(100, 0.1F)}, {48000, captureRate, true, 0.0});
        microphone.start(clock);
        std::int64_t last = 0;
        const auto read = [&last](std::int64_t frame, float* const* target, std::size_t count) {
            std::fill_n(target[0], count, 0.0F);
            last = frame + static_cast<std::int64_t>(count);
        };
        Signal output(100);
        for (std::int64_t frame = 0; frame < 10'000; frame += 100) {
            microphone.render(frame, output.data(), 100, read);
            ASSERT_LE(FrameGrid(48000).timeOf(last), clock.timeOf(frame + 100));
        }
    }
}

}  // namespace
}  // namespace roomsim
