#pragma once

#include "support/DeviceFixture.h"
#include "support/Eventually.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A stream that the device writes: playback progress or recorded audio.
template <typename Message>
class StreamClient {
public:
    using Reader = grpc::ClientReaderInterface<Message>;

    /// `start(stub, context)` makes the call.
    template <typename Start>
    explicit StreamClient(const Start& start) : reader_(start(client_.stub(), &context_)) {}

    /// None when the stream has ended.
    bool next(Message* message) { return reader_->Read(message); }

    void cancel() { context_.TryCancel(); }

    /// Reads what is left; how the call ended.
    std::string finish() {
        Message message;
        while (reader_->Read(&message)) {
        }
        return outcome(reader_->Finish());
    }

private:
    CalibrationClient client_;
    grpc::ClientContext context_;
    const std::unique_ptr<Reader> reader_;
};

/// A device whose stimuli are short, and what a client does to measure with it.
class MeasurementFixture : public DeviceFixture {
protected:
    static constexpr int kSampleRate = 8000;            // Hz
    static constexpr std::size_t kSweepLength = 44000;  // samples, with its silence
    static constexpr std::size_t kChunk = 8192;         // samples
    static constexpr std::size_t kSweepChunks = 6;
    static constexpr std::chrono::milliseconds kTail{1500};

    using Playback = StreamClient<dio::endpoint::Progress>;
    using Recording = StreamClient<dio::endpoint::AudioBuffers>;

    MeasurementFixture() { description.stimuliSampleRate = kSampleRate; }

    static dio::endpoint::StimuliPrepare sweepThrough(std::vector<int> speakers,
                                                      unsigned variant = 0) {
        return stimulusOf(dio::endpoint::STIMULUS_TYPE_LOG_SWEEP, variant, std::move(speakers));
    }
    static dio::endpoint::StimuliPrepare noiseThrough(std::vector<int> speakers,
                                                      unsigned variant = 0) {
        return stimulusOf(dio::endpoint::STIMULUS_TYPE_PINK_NOISE, variant, std::move(speakers));
    }
    static dio::endpoint::StimuliPrepare stimulusOf(dio::endpoint::StimulusType type,
                                                    unsigned variant, std::vector<int> speakers) {
        dio::endpoint::StimuliPrepare prepared;
        prepared.mutable_stimulus()->set_type(type);
        prepared.mutable_stimulus()->set_variant(variant);
        prepared.mutable_speakers()->Add(speakers.begin(), speakers.end());
        return prepared;
    }

    void prepare(const dio::endpoint::StimuliPrepare& prepared) {
        ask(&Stub::PrepareStimuli, prepared);
    }

    void setGain(int speaker, double decibels) {
        dio::endpoint::StimuliGain gain;
        gain.set_channel(speaker);
        gain.set_gain(decibels);
        ask(&Stub::SetStimuliGain, gain);
    }

    /// A slot with a filter, chosen and on in the segment.
    void activateFilter() {
        transferFir(1, "Sofa", {0.5F}, 1);
        activate(1);
        dio::endpoint::OperationMode mode;
        mode.set_filtering(true);
        ask(&Stub::SetOperationMode, mode);
        ASSERT_TRUE(eventually([] { return image().bypass == 0; }));
        settle();
    }

    /// Ms since the epoch.
    static std::uint64_t in(std::chrono::milliseconds time) {
        const auto then = std::chrono::system_clock::now().time_since_epoch() + time;
        return static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(then).count());
    }

    static std::unique_ptr<Playback> startStimuli(std::uint64_t startTime = 0) {
        return std::make_unique<Playback>([&](Stub& stub, grpc::ClientContext* context) {
            return stub.StartStimuli(context, startAt(startTime));
        });
    }
    static std::unique_ptr<Recording> startRecording(std::uint64_t startTime = 0) {
        return std::make_unique<Recording>([&](Stub& stub, grpc::ClientContext* context) {
            return stub.StartRecordingStimuli(context, startAt(startTime));
        });
    }
    static dio::endpoint::StimuliStart startAt(std::uint64_t time) {
        dio::endpoint::StimuliStart start;
        start.set_start_time(time);
        return start;
    }

    /// Plays to the end; the progress on the way.
    static std::vector<float> progressOf(Playback& playback, std::string* result) {
        std::vector<float> values;
        dio::endpoint::Progress progress;
        while (playback.next(&progress))
            values.push_back(progress.value());
        *result = playback.finish();
        return values;
    }

    /// Plays to the end, which must be a good one.
    std::vector<float> play() {
        std::string result;
        const auto progress = progressOf(*startStimuli(), &result);
        EXPECT_EQ(result, "OK");
        return progress;
    }

    /// The speakers in the order in which they were played.
    std::vector<int> playedSpeakers() {
        const std::string prefix = "DEBUG generating stimuli for speaker index ";
        std::vector<int> speakers;
        for (const std::string& line : log().lines())
            if (line.rfind(prefix, 0) == 0)
                speakers.push_back(std::stoi(line.substr(prefix.size())));
        return speakers;
    }
};
