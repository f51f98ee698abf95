#include "calibrate/Errors.h"
#include "calibrate/Eventually.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <sys/resource.h>

#include <cmath>
#include <csignal>
#include <limits>
#include <thread>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

using Context = EndpointDouble::Context;
using AudioWriter = EndpointDouble::AudioWriter;

/// Bounds the size of files that this process writes.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
    void (*handler_)(int);
};

class RecordTest : public CommandFixture {
protected:
    std::string file() const { return path("out.wav"); }
    SoundFile recorded() const { return readSoundFile(file()); }

    int record(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"record", file()});
        return run(arguments);
    }

    /// The microphone sends these blocks and then what `end` does.
    void sendBlocks(const std::vector<std::vector<float>>& blocks,
                    const std::function<grpc::Status(Context*)>& end) {
        device_.onRecording = [=](Context* context, AudioWriter* writer) {
            for (const auto& block : blocks)
                EndpointDouble::send(writer, block);
            return end(context);
        };
    }

    bool holdsSamples(std::size_t count) const {
        std::error_code missing;
        const auto size = std::filesystem::file_size(file(), missing);
        return !missing && size >= count * sizeof(float);
    }

    static grpc::Status endInOrder(Context*) { return grpc::Status::OK; }
};

TEST_F(RecordTest, RecordsFreelyForADuration) {
    ASSERT_EQ(record({"--duration", "0.25"}), kExitOk) << errors();

    EXPECT_EQ(recorded().samples.size(), 12000U);
    EXPECT_EQ(recorded().sampleRate, 48000);
    EXPECT_EQ(recorded().format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_EQ(device_.callsOf("PrepareStimuli"), 0);
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
    EXPECT_EQ(output(),
              "Recorded 0.2 s at 48 kHz to " + file() + ": peak -20.0 dB, RMS -20.0 dB.\n");
}

TEST_F(RecordTest, SamplesArriveExactlyAndInOrder) {
    sendBlocks({{0.1F, -1e-20F}, {}, {1.0F / 3}}, endInOrder);
    ASSERT_EQ(record({}), kExitOk) << errors();

    EXPECT_THAT(recorded().samples, ElementsAre(0.1F, -1e-20F, 1.0F / 3));
}

TEST_F(RecordTest, RecordsAStimulusToItsEnd) {
    ASSERT_EQ(record({"--stimulus", "sweep", "--speaker", "1", "--gain", "-6"}), kExitOk)
        << errors();

    EXPECT_EQ(device_.prepared().speakers_size(), 1);
    EXPECT_EQ(device_.prepared().speakers(0), 1);
    EXPECT_TRUE(device_.prepared().stream_recording());
    EXPECT_EQ(recorded().samples.size(), 7U * 48000);
    EXPECT_THAT(errors(), HasSubstr("recording, speaker 1 \"Front right\""));
}

TEST_F(RecordTest, RestoresTheGainsAfterAStimulus) {
    device_.setGains({-20, 0, {{0, -9}, {1, -9}}});
    double meanwhile = 0;
    device_.onRecording = [&](Context*, AudioWriter* writer) {
        meanwhile = device_.gains().stimuli.at(1);
        EndpointDouble::send(writer, {0.5F});
        return grpc::Status::CANCELLED;
    };
    EXPECT_EQ(record({"--stimulus", "noise", "--gain", "-3"}), kExitDevice);
    EXPECT_EQ(meanwhile, -3);
    EXPECT_EQ(device_.gains().stimuli.at(1), -9);
}

TEST_F(RecordTest, ARecordingShorterThanItsSweepIsAFailureAndIsKept) {
    sendBlocks({std::vector<float>(48000, 0.1F)}, endInOrder);

    EXPECT_EQ(record({"--stimulus", "sweep"}), kExitDevice);
    EXPECT_THAT(errors(),
                AllOf(HasSubstr("ended after 1.0 s of 11.0 s"), EndsWith("out.wav holds 1.0 s\n")));
    EXPECT_EQ(recorded().samples.size(), 48000U);
}

TEST_F(RecordTest, CtrlCLeavesAWholeFileAndReportsIt) {
    device_.onRecording = [this](Context* context, AudioWriter* writer) {
        EndpointDouble::send(writer, std::vector<float>(4800, 0.5F));
        const bool written = eventually([&] { return holdsSamples(4800); });
        stop_.request_stop();
        return written ? EndpointDouble::awaitCancelled(context) : grpc::Status::OK;
    };
    EXPECT_EQ(record({"--json"}), kExitInterrupted);
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
    EXPECT_THAT(errors(), HasSubstr("vesk-calibrate: interrupted; " + file() + " holds 0.1 s\n"));
    EXPECT_EQ(json::parse(output())["complete"], false);
    EXPECT_EQ(json::parse(output())["samples"], 4800);
    EXPECT_THAT(recorded().samples, AllOf(testing::SizeIs(4800), Each(0.5F)));
}

TEST_F(RecordTest, WhatCameBeforeADeviceFailedIsKept) {
    sendBlocks({std::vector<float>(4800, 0.5F)}, [](Context*) {
        return grpc::Status(grpc::StatusCode::INTERNAL, "the cat sat on it");
    });
    EXPECT_EQ(record({}), kExitDevice);
    EXPECT_THAT(errors(), AllOf(HasSubstr("StartStreaming: the device says: the cat sat on it; "),
                                EndsWith("out.wav holds 0.1 s\n")));
    EXPECT_THAT(output(), HasSubstr("Recorded 0.1 s"));
    EXPECT_THAT(recorded().samples, AllOf(testing::SizeIs(4800), Each(0.5F)));
}

TEST_F(RecordTest, ADeviceThatVanishesLeavesAWholeFile) {
    std::thread end;
    device_.onRecording = [&](Context* context, AudioWriter* writer) {
        EndpointDouble::send(writer, std::vector<float>(4800, 0.5F));
        end = std::thread([this] { device_.vanish(); });
        return EndpointDouble::awaitCancelled(context);
    };
    EXPECT_EQ(record({}), kExitDevice);
    end.join();
    EXPECT_THAT(errors(),
                AllOf(HasSubstr("StartStreaming: the connection to"), HasSubstr("holds 0.1 s")));
    EXPECT_EQ(recorded().samples.size(), 4800U);
}

TEST_F(RecordTest, AMicrophoneThatFallsSilentIsGivenUp) {
    sendBlocks({{0.5F}}, &EndpointDouble::awaitCancelled);

    EXPECT_EQ(record({"--timeout", "0.3"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("microphone sent nothing for 0.3 s: it may have been "
                                    "unplugged, or the network is down"));
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
}

TEST_F(RecordTest, EmptyMessagesAreSilence) {
    device_.onRecording = [](Context* context, AudioWriter* writer) {
        EndpointDouble::send(writer, {0.5F});
        while (!context->IsCancelled())
            EndpointDouble::send(writer, {});
        return grpc::Status::CANCELLED;
    };
    EXPECT_EQ(record({"--timeout", "0.3"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("microphone sent nothing for 0.3 s"));
}

TEST_F(RecordTest, AMicrophoneThatSendsNothingLeavesNoFile) {
    sendBlocks({}, endInOrder);

    EXPECT_EQ(record({"--stimulus", "sweep"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("microphone sent nothing: check that it is plugged in; nothing "
                                    "was recorded"));
    EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(RecordTest, SamplesThatAreNoNumbersBecomeZeroAndAreToldOf) {
    sendBlocks({{0.5F, std::nanf(""), INFINITY, -0.5F}}, endInOrder);
    ASSERT_EQ(record({"--json"}), kExitOk) << errors();

    EXPECT_THAT(recorded().samples, ElementsAre(0.5F, 0, 0, -0.5F));
    EXPECT_EQ(json::parse(output())["invalid_samples"], 2);
    EXPECT_THAT(errors(), HasSubstr("warning: 2 samples from the device were no numbers"));
}

TEST_F(RecordTest, AMessageOfAbsurdSizeEndsTheRecording) {
    sendBlocks({{0.5F}, std::vector<float>(2000000, 0.5F)}, endInOrder);

    EXPECT_EQ(record({}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("sent a message that is too large"));
    EXPECT_EQ(recorded().samples.size(), 1U);
}

TEST_F(RecordTest, OnlyTheChosenMicrophoneIsRecorded) {
    device_.microphones = {"Left", "Right"};
    device_.device.set_num_mics(2);
    device_.onRecording = [](Context*, AudioWriter* writer) {
        EndpointDouble::send(writer, {0.1F}, 0);
        EndpointDouble::send(writer, {0.2F}, 1);
        EndpointDouble::send(writer, {0.3F}, 7);
        return grpc::Status::OK;
    };
    ASSERT_EQ(record({"--mic", "1"}), kExitOk) << errors();
    EXPECT_THAT(recorded().samples, ElementsAre(0.2F));
}

TEST_F(RecordTest, ClippingAndSilenceAreToldInWords) {
    sendBlocks({{0.5F, 1.0F, -1.0F}}, endInOrder);
    ASSERT_EQ(record({}), kExitOk);
    EXPECT_THAT(errors(), HasSubstr("warning: 2 samples at full scale: the microphone is "
                                    "overdriven"));

    sendBlocks({std::vector<float>(100, 0.0F)}, endInOrder);
    ASSERT_EQ(record({"--force", "--json"}), kExitOk);
    EXPECT_THAT(errors(), HasSubstr("warning: the recording is silent"));
    EXPECT_EQ(json::parse(output())["peak_db"], nullptr);
}

TEST_F(RecordTest, AFileThatExistsIsReplacedByForceOnly) {
    writeText(file(), "precious");
    EXPECT_EQ(record({"--duration", "0.1"}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("out.wav: exists; give another name, or --force"));
    EXPECT_EQ(device_.calls().size(), 0U);

    ASSERT_EQ(record({"--duration", "0.1", "--force"}), kExitOk) << errors();
    EXPECT_EQ(recorded().samples.size(), 4800U);
}

TEST_F(RecordTest, AFileIsReplacedOnlyOnceThereIsSomethingToWrite) {
    writeText(file(), "precious");
    device_.fail("StartStreaming", {grpc::StatusCode::INTERNAL, "no"});

    EXPECT_EQ(record({"--force"}), kExitDevice);
    EXPECT_EQ(std::filesystem::file_size(file()), 8U);
}

TEST_F(RecordTest, APlaceWhereNoFileCanBeIsRefusedBeforeTheDeviceIsAsked) {
    for (const std::string& place :
         {path("missing/out.wav"), path("."), std::string("/dev/null")}) {
        EXPECT_EQ(run({"record", place, "--force"}), kExitUsage) << place;
        EXPECT_THAT(errors(), HasSubstr(place));
    }
    EXPECT_EQ(device_.calls().size(), 0U);
}

TEST_F(RecordTest, AFullDiskIsToldAndWhatIsWrittenStays) {
    const FileSizeLimit limit(40000);

    EXPECT_EQ(record({"--duration", "1"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("out.wav: cannot be written: "));
    EXPECT_GE(recorded().samples.size(), 4800U);
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
}

TEST_F(RecordTest, AMicrophoneThatTheDeviceDoesNotHaveIsRefused) {
    EXPECT_EQ(record({"--mic", "1"}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("microphone 1 does not exist: the device has 1 microphone"));

    device_.device.set_num_mics(0);
    EXPECT_EQ(record({}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("the device has no microphone"));
}

TEST_F(RecordTest, ASampleRateThatCannotBeIsToldOf) {
    for (const float rate : {0.0F, -48000.0F, INFINITY, std::nanf(""), 1e9F}) {
        device_.sampleRate = rate;
        EXPECT_EQ(record({}), kExitDevice);
        EXPECT_THAT(errors(), HasSubstr("claims to stream its microphone at"));
    }
    EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(RecordTest, AnOccupiedMicrophoneIsToldOf) {
    device_.fail("StartRecordingStimuli",
                 {grpc::StatusCode::RESOURCE_EXHAUSTED, "Measurement session active!"});

    EXPECT_EQ(record({"--stimulus", "sweep"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("the device says: Measurement session active!; nothing was "
                                    "recorded"));
}

}  // namespace
}  // namespace calibrate
