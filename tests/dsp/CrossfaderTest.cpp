#include "dsp/Crossfader.h"
#include "dsp/Signals.h"
#include "dsp/TestImage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace dsp {
namespace {

constexpr unsigned kRate = 48000;
constexpr std::size_t kWarmUp = 1024;
constexpr std::size_t kFade = 960;

class CrossfaderTest : public testing::Test {
protected:
    static std::unique_ptr<Engine> engineOf(const DiracConfiguration& image,
                                            unsigned rate = kRate) {
        return std::make_unique<Engine>(image, StreamFormat{rate, 2});
    }

    static Channels engineOutput(const DiracConfiguration& image, const Channels& input,
                                 unsigned rate = kRate) {
        const auto engine = engineOf(image, rate);
        return processedBy([&](const double* const* from, double* const* to,
                               std::size_t frames) { engine->process(from, to, frames); },
                           input);
    }

    /// Offers the engine of `next` before frame `at`.
    Channels faded(const DiracConfiguration& first, const DiracConfiguration& next, std::size_t at,
                   const Channels& input, unsigned rate = kRate) {
        Crossfader fader(engineOf(first, rate), handover_);
        std::size_t frame = 0;
        return processedBy(
            [&](const double* const* from, double* const* to, std::size_t frames) {
                if (frame == at)
                    handover_.offer(engineOf(next, rate));
                fader.process(from, to, frames);
                handover_.reclaim();
                frame += frames;
            },
            input);
    }

    void expectNeitherGapNorClick(const DiracConfiguration& first, const DiracConfiguration& next,
                                  unsigned rate);

    EngineHandover handover_;
};

Channels from(const Channels& channels, std::size_t first) {
    Channels result;
    for (const Channel& channel : channels)
        result.emplace_back(channel.begin() + static_cast<std::ptrdiff_t>(first), channel.end());
    return result;
}

TEST_F(CrossfaderTest, IsExactlyTheMixOfBothEngines) {
    const auto first = filterImage(2, 1000, 30);
    const auto next = filterImage(2, 500, 10);
    constexpr std::size_t at = 1280;
    const Channels input = noise(2, 8000);
    const Channels output = faded(*first, *next, at, input);
    const Channels old = engineOutput(*first, input);
    const Channels fresh = engineOutput(*next, from(input, at));
    for (std::size_t n = 0; n < input[0].size(); ++n) {
        const double share = std::clamp(
            (static_cast<double>(n) - static_cast<double>(at + kWarmUp)) / kFade, 0., 1.);
        const double other = n < at ? 0 : fresh[1][n - at];
        ASSERT_NEAR(output[1][n], (1 - share) * old[1][n] + share * other, 1e-13) << n;
    }
}

TEST_F(CrossfaderTest, BetweenBypassAndFilterThereIsNoClick) {
    const auto bypassed = plainImage();
    const auto filter = plainImage();
    filter->groups[0][0].filterEnabled = 1;
    filter->groups[0][0].taps[0] = -2;  // the most unlike
    constexpr double frequency = 100;
    const Channels input(2, tone(frequency, kRate, 8000));
    for (const bool on : {true, false}) {
        const Channels output =
            on ? faded(*bypassed, *filter, 2560, input) : faded(*filter, *bypassed, 2560, input);
        // The steepest the tone gets at its loudest, and what the fade itself adds.
        const double limit = 2 * 2 * M_PI * frequency / kRate + 3.0 / kFade;
        for (std::size_t n = 1; n < output[0].size(); ++n)
            ASSERT_LT(std::abs(output[0][n] - output[0][n - 1]), limit) << n;
    }
}

Image imageWithDelay(float milliseconds, float gain) {
    auto image = plainImage();
    for (auto& group : image->groups) {
        group[0].linearEnabled = 1;
        group[0].delay = milliseconds;
        group[0].gain = gain;
    }
    return image;
}

/// Sends channel 0 through two delays one after the other.
Image imageWithDelaysInSeries(std::int32_t samples, float gain) {
    auto image = plainImage();
    image->bassControlPresent = 1;
    for (auto& block : image->bassControl) {
        for (const std::size_t section : {1, 3}) {
            block[section].type = 1;
            block[section].cellCount = 1;
            block[section].cells[0].delay = samples;
            block[section].cells[0].gain = gain;
        }
    }
    return image;
}

/// From an image to one that differs in the gain, while a tone goes on.
void CrossfaderTest::expectNeitherGapNorClick(const DiracConfiguration& first,
                                              const DiracConfiguration& next, unsigned rate) {
    constexpr double frequency = 100;
    constexpr std::size_t at = 102400;  // whole blocks
    const Channels input(2, tone(frequency, rate, 2 * at));
    const Channel output = faded(first, next, at, input, rate)[0];
    const Channel old = engineOutput(first, input, rate)[0];
    const Channel fresh = engineOutput(next, input, rate)[0];
    const double steepest = 2 * M_PI * frequency / rate + 50.0 / rate;  // the tone's and the fade's
    for (std::size_t n = at; n < output.size(); ++n) {
        ASSERT_GT(output[n], std::min(old[n], fresh[n]) - 1e-9) << n;
        ASSERT_LT(output[n], std::max(old[n], fresh[n]) + 1e-9) << n;
        ASSERT_LT(std::abs(output[n] - output[n - 1]), steepest) << n;
    }
    EXPECT_NEAR(output.back(), fresh.back(), 1e-9);
}

TEST_F(CrossfaderTest, ThroughALongDelayThereIsNeitherAGapNorAClick) {
    for (const unsigned rate : {44100U, 48000U, 96000U, 192000U}) {
        SCOPED_TRACE(rate);
        expectNeitherGapNorClick(*imageWithDelay(100, 0), *imageWithDelay(100, -6), rate);
    }
}

TEST_F(CrossfaderTest, ThroughDelaysInSeriesThereIsNeitherAGapNorAClick) {
    for (const unsigned rate : {44100U, 48000U, 96000U, 192000U}) {
        SCOPED_TRACE(rate);
        expectNeitherGapNorClick(*imageWithDelaysInSeries(3000, 0),
                                 *imageWithDelaysInSeries(3000, -3), rate);
    }
}

TEST_F(CrossfaderTest, BetweenEqualFiltersNothingIsHeard) {
    const auto image = filterImage(2, 1000, 0);
    const Channels input = noise(2, 8000);
    EXPECT_LT(errorLevel(faded(*image, *image, 1280, input), engineOutput(*image, input)), -120);
}

TEST_F(CrossfaderTest, FadesForTwentyMillisecondsAtEachRate) {
    for (const unsigned rate : {44100U, 48000U, 96000U, 192000U}) {
        const Crossfader fader(engineOf(*plainImage(), rate), handover_);
        EXPECT_EQ(fader.fade(), rate / 50);
    }
}

TEST_F(CrossfaderTest, OfEnginesThatComeDuringAFadeTheLastIsTaken) {
    const auto image = [](float tap) {
        auto result = plainImage();
        result->groups[0][0].filterEnabled = 1;
        result->groups[0][0].taps[0] = tap;
        return result;
    };
    Crossfader fader(engineOf(*image(1)), handover_);
    const Channels input{Channel(128, 1.0), Channel(128)};
    Channels output = input;
    const auto run = [&](std::size_t frames) {
        for (std::size_t n = 0; n < frames; n += 128) {
            fader.process(pointersTo(input).data(), pointersTo(&output).data(), 128);
            handover_.reclaim();
        }
        return output[0].back();
    };
    handover_.offer(engineOf(*image(2)));
    EXPECT_NEAR(run(128), 1, 1e-6);
    handover_.offer(engineOf(*image(3)));
    handover_.offer(engineOf(*image(4)));
    EXPECT_NEAR(run(2048), 2, 1e-6);
    EXPECT_NEAR(run(2048), 4, 1e-6);
    EXPECT_NEAR(run(4096), 4, 1e-6);
}

TEST_F(CrossfaderTest, WaitsWhileNobodyReclaimsTheLastEngine) {
    Crossfader fader(engineOf(*plainImage()), handover_);
    const Channels input = noise(2, 4096);
    Channels output = input;
    const auto run = [&] {
        fader.process(pointersTo(input).data(), pointersTo(&output).data(), 4096);
    };
    handover_.offer(engineOf(*plainImage()));
    run();
    const auto filter = filterImage(2, 100, 0);
    handover_.offer(engineOf(*filter));
    run();
    EXPECT_EQ(output, input);
    handover_.reclaim();
    run();
    EXPECT_NE(output, input);
}

}  // namespace
}  // namespace dsp
