// What the device plays is what the DSP makes of it.

#include "dsp/Engine.h"
#include "dsp/Verbs.h"
#include "support/ScratchDirectory.h"
#include "system/DeviceTest.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

namespace {

namespace fs = std::filesystem;

class CorrectedPlaybackTest : public DeviceTest {
protected:
    static constexpr std::size_t kFrames = 9600;

    CorrectedPlaybackTest() {
        options().stateDirectory = scratch_.path() / "state";
        std::ofstream(path("asound.conf"))
            << "pcm.recorder { type file slave.pcm nothing file \"" << path("played.raw").string()
            << "\" format raw }\npcm.nothing { type null }\n";
        const std::string configuration =
            "/usr/share/alsa/alsa.conf:" + path("asound.conf").string();
        setenv("ALSA_CONFIG_PATH", configuration.c_str(), 1);
    }
    ~CorrectedPlaybackTest() override { unsetenv("ALSA_CONFIG_PATH"); }

    fs::path path(const std::string& name) const { return scratch_.path() / name; }

    /// Two channels of noise that fit into a file of 32-bit floats.
    dsp::Sound writeNoise(unsigned rate) const {
        std::minstd_rand random(rate);
        std::uniform_int_distribution<int> samples(-(1 << 20), 1 << 20);
        dsp::Sound sound{rate, false, {2, std::vector<double>(kFrames)}};
        for (auto& channel : sound.channels) {
            for (double& sample : channel)
                sample = samples(random) / double{1 << 23};
        }
        dsp::writeWav(path("sound.wav"), sound);
        return sound;
    }

    /// What a device over the same state plays of sound.wav, `frames` in all, and the image that it
    /// had.
    std::vector<std::vector<double>> play(std::size_t frames) {
        fs::remove(path("played.raw"));
        DeviceProcess::Options options = this->options();
        options.arguments = {"--playback", "recorder", "--play", path("sound.wav").string()};
        DeviceProcess player(options);
        player.start();
        EXPECT_TRUE(eventually([&] {
            std::error_code none;
            return fs::file_size(path("played.raw"), none) == 2 * frames * sizeof(std::int32_t);
        }));
        image_ = image();
        player.stop();
        return played();
    }

    const DiracConfiguration& imageWhilePlaying() const { return *image_; }

private:
    std::vector<std::vector<double>> played() const {
        const std::string bytes = readFile(path("played.raw"));
        std::vector<std::vector<double>> channels(2);
        for (std::size_t at = 0; at + sizeof(std::int32_t) <= bytes.size();
             at += sizeof(std::int32_t)) {
            std::int32_t sample = 0;
            bytes.copy(reinterpret_cast<char*>(&sample), sizeof sample, at);
            channels[at / sizeof sample % 2].push_back(sample / 2147483648.0);
        }
        return channels;
    }

    const ScratchDirectory scratch_;
    std::unique_ptr<const DiracConfiguration> image_;
};

}  // namespace

TEST_F(CorrectedPlaybackTest, aSoundFileIsHeardThroughTheActiveFilter) {
    start();
    // Parallel sections of random numbers would be unstable.
    const FilterDesign design = makeDesign({2, 20, 0, false}, 1);
    transfer(0, design);
    activate(0, design);
    device().stop();
    for (const unsigned rate : {48000U, 96000U}) {
        const dsp::Sound sound = writeNoise(rate);
        const std::size_t latency = dsp::Engine::latency(rate);
        const auto heard = play(kFrames + latency);
        EXPECT_EQ(imageWhilePlaying().bypass, 0);
        std::ostringstream messages;
        const auto expected = dsp::processed(sound, imageWhilePlaying(), false, messages);
        EXPECT_EQ(messages.str(), "");
        for (std::size_t c = 0; c < heard.size(); ++c) {
            ASSERT_EQ(heard[c].size(), kFrames + latency);
            for (std::size_t n = 0; n < kFrames; ++n)
                ASSERT_NEAR(heard[c][n + latency], std::clamp(expected.channels[c][n], -1.0, 1.0),
                            1e-9)
                    << rate << " Hz, channel " << c << ", frame " << n;
        }
    }
}
