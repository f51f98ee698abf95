// What runs in the audio thread between two blocks, seen from the processor that it calls.

#include "platform/PlatformPaths.h"
#include "platform/alsa/AlsaConfiguration.h"
#include "platform/alsa/FaultyDevices.h"
#include "platform/cm/Tree.h"
#include "platform/player/Player.h"
#include "platform/player/PlayerStatistics.h"
#include "platform/player/SoundFile.h"
#include "support/Eventually.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <new>
#include <thread>
#include <utility>
#include <vector>

namespace {

thread_local std::size_t allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace {

using Samples = std::vector<std::int32_t>;

struct Observations {
    platform::AudioFormat format;
    std::thread::id preparing;
    std::thread::id processing;
    std::size_t blocks{0};
    std::size_t samples{0};
    std::size_t allocationsAtFirst{0};
    std::size_t allocationsAtLast{0};
};

/// Turns the signal round.
class Inverter : public platform::AudioProcessor {
public:
    explicit Inverter(Observations* seen) : seen_(seen) {}

    void prepare(const platform::AudioFormat& format) override {
        seen_->format = format;
        seen_->preparing = std::this_thread::get_id();
    }

    void process(std::span<std::int32_t> samples) noexcept override {
        if (seen_->blocks++ == 0)
            seen_->allocationsAtFirst = allocations;
        seen_->allocationsAtLast = allocations;
        seen_->processing = std::this_thread::get_id();
        seen_->samples += samples.size();
        for (std::int32_t& sample : samples)
            sample = ~sample;
    }

private:
    Observations* const seen_;
};

/// Delays mono.
class Delay : public platform::AudioProcessor {
public:
    void prepare(const platform::AudioFormat& /*format*/) override { line_.assign(700, 0); }
    std::size_t latency() const override { return line_.size(); }

    void process(std::span<std::int32_t> samples) noexcept override {
        for (std::int32_t& sample : samples) {
            std::swap(sample, line_[place_]);
            place_ = (place_ + 1) % line_.size();
        }
    }

private:
    std::vector<std::int32_t> line_;
    std::size_t place_{0};
};

/// Gives the number of underruns.
qint64 playThrough(std::unique_ptr<platform::AudioProcessor> processor,
                   const std::filesystem::path& file, const char* device = "recorder") {
    const auto tree = std::make_shared<platform::Tree>();
    tree->provide({platform::playerDataPath(), VeskValue()});
    tree->provide({platform::playerStatisticsPath(), VeskValue()});
    platform::Player player(tree, QString::fromLatin1(device), std::move(processor));
    player.play(platform::fileRoles(QString::fromStdString(file.string())), false);
    EXPECT_TRUE(eventually([&] { return player.data().state() == VeskPlayLogicState::Stopped; }));
    const VeskValue statistics = *tree->read(platform::playerStatisticsPath());
    return platform::PlayerStatistics(statistics.hash()).underruns();
}

class AudioThreadTest : public testing::Test {
protected:
    AudioThreadTest() {
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = static_cast<std::int32_t>(i * 2'654'435'761U);
        writeSoundFile<std::int32_t>(recorder.scratch() / "sound.wav", samples, 2);
        playThrough(std::make_unique<Inverter>(&seen), recorder.scratch() / "sound.wav");
    }

    const AlsaConfiguration recorder;
    Samples samples{Samples(100'000)};
    Observations seen;
};

}  // namespace

TEST_F(AudioThreadTest, AllAudioPassesThroughTheProcessor) {
    for (std::int32_t& sample : samples)
        sample = ~sample;
    EXPECT_EQ(recorder.recorded(), samples);
    EXPECT_EQ(seen.samples, samples.size());
    EXPECT_EQ(seen.format, (platform::AudioFormat{48000, 2}));
}

TEST_F(AudioThreadTest, TheProcessorIsPreparedInAnotherThread) {
    EXPECT_NE(seen.preparing, seen.processing);
    EXPECT_NE(seen.processing, std::this_thread::get_id());
}

TEST_F(AudioThreadTest, NothingIsAllocatedBetweenBlocks) {
    EXPECT_GT(seen.blocks, 100U);
    EXPECT_EQ(seen.allocationsAtLast, seen.allocationsAtFirst);
}

TEST(AudioUnderrunTest, NothingIsAllocatedWhenTheDeviceRunsDry) {
    const AlsaConfiguration faulty(faultyDevices());
    const auto file = faulty.scratch() / "sound.wav";
    writeSoundFile<std::int32_t>(file, Samples(100'000), 2);
    Observations seen;
    const auto underruns = playThrough(std::make_unique<Inverter>(&seen), file, "xrunning");
    EXPECT_GE(underruns, 8);
    EXPECT_EQ(seen.samples, 100'000U);
    EXPECT_EQ(seen.allocationsAtLast, seen.allocationsAtFirst);
}

TEST(AudioTailTest, WhatTheProcessorHoldsBackIsHeardInTheEnd) {
    const AlsaConfiguration recorder;
    Samples samples(1000, 5);
    writeSoundFile<std::int32_t>(recorder.scratch() / "sound.wav", samples, 1);
    playThrough(std::make_unique<Delay>(), recorder.scratch() / "sound.wav");
    samples.insert(samples.begin(), 700, 0);
    EXPECT_EQ(recorder.recorded(), samples);
}
