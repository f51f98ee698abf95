#include "dsp/Verbs.h"

#include "dsp/Engine.h"
#include "dsp/ImageFile.h"
#include "dsp/ToolError.h"
#include "platform/services/SystemVLock.h"
#include "segment/SegmentAttachment.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

namespace dsp {
namespace {

constexpr std::size_t kBlock = 4096;

/// Waits a while for the lock; a reader holds it for microseconds.
void take(platform::SystemVLock* lock, int key) {
    constexpr int attempts = 100;
    for (int i = 0; i < attempts; ++i) {
        if (lock->tryLock())
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw ToolError("the lock with key " + std::to_string(key) +
                    " is held: nobody can read the segment");
}

/// The lock is asked for only where there is a segment, because asking creates it.
std::unique_ptr<DiracConfiguration> readSegment(int key) {
    segment::findSegment(key);
    platform::SystemVLock lock(key);
    take(&lock, key);
    const std::unique_lock<platform::SystemVLock> guard(lock, std::adopt_lock);
    auto image = std::make_unique<DiracConfiguration>();
    segment::SegmentAttachment(key).copy(image.get());
    return image;
}

std::unique_ptr<DiracConfiguration> readFrom(const ImageSource& source) {
    return source.file ? readImageFile(*source.file) : readSegment(source.key);
}

Sound readInput(const Command& command) {
    Sound sound = readSound(command.input);
    sound.rate = command.rate.value_or(sound.rate);
    if (!streamRate(sound.rate))
        throw ToolError(command.input.string() + ": " + std::to_string(sound.rate) +
                        " Hz; the DSP runs at 44100, 48000, 88200, 96000, 176400 and 192000 Hz");
    return sound;
}

/// Feeds `sound`, and then silence, block by block.
class Feed {
public:
    explicit Feed(const Sound& sound) : sound_(sound), block_(sound.channels.size()) {
        for (auto& channel : block_)
            channel.resize(kBlock);
        for (const auto& channel : block_)
            pointers_.push_back(channel.data());
    }

    const double* const* next(std::size_t frames) {
        for (std::size_t c = 0; c < block_.size(); ++c) {
            const auto& from = sound_.channels[c];
            const std::size_t count = std::min(frames, from.size() - std::min(at_, from.size()));
            std::copy_n(from.data() + std::min(at_, from.size()), count, block_[c].data());
            std::fill(block_[c].begin() + static_cast<std::ptrdiff_t>(count), block_[c].end(), 0.0);
        }
        at_ += frames;
        return pointers_.data();
    }

private:
    const Sound& sound_;
    std::vector<std::vector<double>> block_;
    std::vector<const double*> pointers_;
    std::size_t at_{0};
};

void runEngine(Engine* engine, const Sound& sound, Sound* result) {
    Feed feed(sound);
    std::vector<double*> output(result->channels.size());
    for (std::size_t done = 0; done < result->frames(); done += kBlock) {
        const std::size_t frames = std::min(kBlock, result->frames() - done);
        for (std::size_t c = 0; c < output.size(); ++c)
            output[c] = result->channels[c].data() + done;
        engine->process(feed.next(frames), output.data(), frames);
    }
}

void process(const Command& command, std::ostream& messages) {
    const Sound sound = readInput(command);
    const auto image = readFrom(command.image);
    writeWav(command.output, processed(sound, *image, command.keepsLatency, messages));
}

}  // namespace

Sound processed(const Sound& sound, const DiracConfiguration& image, bool keepsLatency,
                std::ostream& messages) {
    Engine engine(image, {sound.rate, sound.channels.size()});
    for (const std::string& problem : engine.problems())
        messages << problem << '\n';
    const std::size_t latency = Engine::latency(sound.rate);
    Sound result{sound.rate, sound.isWide, sound.channels};
    for (auto& channel : result.channels)
        channel.resize(sound.frames() + latency);
    runEngine(&engine, sound, &result);
    if (keepsLatency)
        return result;
    for (auto& channel : result.channels)
        channel.erase(channel.begin(), channel.begin() + static_cast<std::ptrdiff_t>(latency));
    return result;
}

void run(const Command& command, std::ostream& messages) {
    switch (command.verb) {
        case Command::Verb::Process:
            return process(command, messages);
        case Command::Verb::Save:
            return writeImageFile(command.output, *readFrom(command.image));
    }
}

}  // namespace dsp
