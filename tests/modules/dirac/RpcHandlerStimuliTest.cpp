#include "modules/dirac/CallLog.h"
#include "modules/dirac/MeasurementFixture.h"
#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/StandInMicrophone.h"
#include "modules/dirac/StandInSender.h"
#include "modules/dirac/StimulusGenerators.h"
#include "modules/dirac/StimulusPcm.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/player/PlayLogicInterface.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <thread>

using namespace dio::endpoint;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kHalf = -6.020599913279624;  // dB

/// Playback on a device whose media transport takes everything at once.
class RpcHandlerStimuliTest : public MeasurementFixture {
protected:
    RpcHandlerStimuliTest() {
        sender().reset();
        StandInMicrophone::instance().reset();
        CallLog::instance().clear();
    }
    ~RpcHandlerStimuliTest() override {
        sender().letAllThrough();
        stopDevice();
    }

    static StandInSender& sender() { return StandInSender::instance(); }

    void start() {
        startDevice();
        CallLog::instance().clear();
    }

    void addSubwoofer() {
        description.speakers.prepend({QStringLiteral("Sub"), ::DeviceInfo::kSubwooferType, 1});
    }

    /// What was asked of the platform, without the chunks, and without what the worker does when
    /// it is told at some time that the player has stopped.
    static std::vector<std::string> calls() {
        auto calls = CallLog::instance().calls();
        std::erase(calls, "send");
        std::erase(calls, "disable");
        return calls;
    }

    static void stopPlayerFromOutside() {
        PlayLogicInterface::playerInstance()->stop(VeskPlayLogicStopReason::UserRequested);
    }

    /// The sweep of variant 0 as one channel of integers.
    static std::vector<std::int32_t> sweep() {
        return pcmOf(generateLogSweep(10.0, kSampleRate / 2, 5 * kSampleRate, kSampleRate / 2, 1,
                                      kSampleRate, 300.0));
    }

    /// All that was sent, of one of `channels` channels.
    static std::vector<std::int32_t> sentTo(std::size_t channel, std::size_t channels) {
        std::vector<std::int32_t> samples;
        for (const auto& chunk : sender().sent())
            for (std::size_t i = channel; i < chunk.size(); i += channels)
                samples.push_back(chunk[i]);
        return samples;
    }

    static bool isSilent(const std::vector<std::int32_t>& samples) {
        return std::ranges::all_of(samples, [](std::int32_t sample) { return sample == 0; });
    }

    static bool runtimeIsBypassed() {
        const VeskDiracSlotsList list = runtimeSlots();
        return !list.filteringEnabled() && !list.delayGainEnabled();
    }

    /// The calls that this takes are forgotten.
    void activateFilter() {
        MeasurementFixture::activateFilter();
        CallLog::instance().clear();
    }

    /// A sweep whose first chunk is held on its way to the player.
    std::unique_ptr<Playback> startHeldSweep() {
        sender().hold();
        prepare(sweepThrough({0}, 1));
        auto playback = startStimuli();
        EXPECT_TRUE(eventually([] { return sender().isHolding(); }));
        return playback;
    }

    void expectFilterBack() {
        EXPECT_TRUE(eventually([] { return image().bypass == 0; }));
        EXPECT_EQ(runtimeSlots(), settings());
        EXPECT_EQ(CallLog::instance().calls().back(), "mixing on");
    }
};

const std::vector<std::string> kWholePlayback{
    "mixing off",       "filter off", "playing",     "open smtDiracPlayerSocket 0 2 1",
    "format 48000 2 6", "sequence",   "not playing", "end",
    "filter off",  // as it was: there is no slot
    "mixing on",        "close",
};

const std::string kStartStimuli =
    "virtual grpc::Status RpcHandler::StartStimuli(grpc::ServerContext*, const "
    "dio::endpoint::StimuliStart*, grpc::ServerWriter<dio::endpoint::Progress>*): ";
const std::string kStartsStimuli = "TRACE Enter " + kStartStimuli;
const std::string kStimuliCancelled = "TRACE Leave " + kStartStimuli + "RETURN: CANCELLED";

}  // namespace

// ---- Preparing ----

TEST_F(RpcHandlerStimuliTest, TakesWhateverIsPrepared) {
    start();
    StimuliPrepare prepared = sweepThrough({0, 1, 17});
    prepared.set_stream_recording(true);
    prepare(prepared);
    EXPECT_TRUE(logged("INFO Speaker idx size: 3 Has stimulus: 1 Stream recording: 1"));
    prepare({});
    EXPECT_TRUE(logged("INFO Speaker idx size: 0 Has stimulus: 0 Stream recording: 0"));
}

TEST_F(RpcHandlerStimuliTest, RefusesAnUnknownStimulus) {
    start();
    std::string result;
    progressOf(*startStimuli(), &result);
    EXPECT_EQ(result, "INVALID_ARGUMENT \"Unknown stimuli type.\"");
    prepare(stimulusOf(STIMULUS_TYPE_MLS, 0, {0}));
    progressOf(*startStimuli(), &result);
    EXPECT_EQ(result, "INVALID_ARGUMENT \"Unknown stimuli type.\"");
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(RpcHandlerStimuliTest, RefusesAVariantOutOfRange) {
    start();
    for (const auto& prepared :
         {sweepThrough({0}, 2), sweepThrough({0}, 0xFFFFFFFF), noiseThrough({0}, 1)}) {
        prepare(prepared);
        std::string result;
        progressOf(*startStimuli(), &result);
        EXPECT_EQ(result, "INVALID_ARGUMENT \"Stimuli variant out of range\"");
    }
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(RpcHandlerStimuliTest, RefusesASpeakerOutOfRange) {
    start();
    for (const auto& prepared : {sweepThrough({0, 2}), sweepThrough({-1}), noiseThrough({2})}) {
        prepare(prepared);
        std::string result;
        progressOf(*startStimuli(), &result);
        EXPECT_EQ(result, "INVALID_ARGUMENT \"Speaker index out of range\"");
    }
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(RpcHandlerStimuliTest, RefusesToPlayOnMoreChannelsThanAPlayerTakes) {
    description.stimuliChannels = 1U << 17U;
    start();
    prepare(sweepThrough({0}));
    std::string result;
    progressOf(*startStimuli(), &result);
    EXPECT_EQ(
        result,
        "FAILED_PRECONDITION \"The device has 131072 channels for stimuli; 64 can be played\"");
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(RpcHandlerStimuliTest, RefusesASpeakerWithoutAChannel) {
    description.stimuliChannels = 1;
    start();
    prepare(sweepThrough({}));
    std::string result;
    progressOf(*startStimuli(), &result);
    EXPECT_EQ(result, "INVALID_ARGUMENT \"Speaker index out of range\"");
    EXPECT_THAT(calls(), IsEmpty());
}

// ---- What is played ----

TEST_F(RpcHandlerStimuliTest, GoesThroughThePlaybackStepByStep) {
    start();
    prepare(sweepThrough({0}));
    play();
    EXPECT_EQ(calls(), kWholePlayback);
    EXPECT_TRUE(logged("INFO Calibration playback started"));
    EXPECT_EQ(countLogged("INFO Calibration playback stopped"), 1U);
    EXPECT_TRUE(
        logged("INFO Start_freq: 10 End_freq: 4000 Lenght: 40000 Silence: 4000 Num_periods: 1 "
               "Samplerate: 8000 Fade_out_tail_hz: 300"));
    EXPECT_TRUE(logged("TRACE monoToSpecificChannel: 0 -> 2, samples: 8192"));
    EXPECT_TRUE(logged("TRACE monoToSpecificChannel: 0 -> 2, samples: 3040"));
    EXPECT_TRUE(logged("TRACE Leave " + kStartStimuli + "RETURN: OK"));
}

TEST_F(RpcHandlerStimuliTest, GivesThePlayerASourceOfItsOwn) {
    start();
    sender().hold();
    prepare(sweepThrough({0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().isHolding(); }));
    const VeskRoles roles = PlayLogicInterface::playerInstance()->data().mediaRoles();
    EXPECT_EQ(roles.type(), 3);
    EXPECT_EQ(roles.title().text(), QStringLiteral("Dirac - calibration"));
    EXPECT_EQ(roles.mediaData().metaData().serviceID(), VeskService_Dirac_Id());
    const QVariantList resources = roles.mediaData().resources();
    ASSERT_EQ(resources.size(), 1);
    EXPECT_EQ(VeskResource(resources.first()).mimeType(), MimeTypes::Audio::unknown());
    EXPECT_EQ(VeskResource(resources.first()).uri(),
              QStringLiteral("smt://play?socketAddress=smtDiracPlayerSocket&"
                             "disableBuffering=true"));
    sender().letAllThrough();
    EXPECT_EQ(playback->finish(), "OK");
    const auto stopped = [] {
        return PlayLogicInterface::playerInstance()->data().state() == VeskPlayLogicState::Stopped;
    };
    EXPECT_TRUE(eventually(stopped));
}

TEST_F(RpcHandlerStimuliTest, LeavesThePlayerToAnotherServiceThatHasTakenIt) {
    start();
    sender().hold();
    prepare(sweepThrough({0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().isHolding(); }));
    VeskMetaData metaData;
    metaData.setServiceID(QStringLiteral("radio"));
    VeskMediaData mediaData;
    mediaData.setMetaData(metaData);
    VeskResource stream;
    stream.setUri(QStringLiteral("smt://play?socketAddress=radio"));
    mediaData.setResources({QVariant(stream)});
    VeskRoles radio;
    radio.setMediaData(mediaData);
    PlayLogicInterface::playerInstance()->play(radio, false);
    EXPECT_EQ(playback->finish(), "OK");
    EXPECT_TRUE(logged("DEBUG notifyPlayerStateChanged: Stopped"));
    EXPECT_EQ(PlayLogicInterface::playerInstance()->data().mediaRoles().mediaData(), mediaData);
}

TEST_F(RpcHandlerStimuliTest, SendsTheSweepToTheSpeakersChannelInChunks) {
    start();
    setGain(1, 0.0);
    prepare(sweepThrough({1}));
    play();
    EXPECT_THAT(sender().sent(), SizeIs(kSweepChunks));
    EXPECT_EQ(sender().sent().front().size(), 2 * kChunk);
    EXPECT_EQ(sender().sent().back().size(), 2 * (kSweepLength - 5 * kChunk));
    EXPECT_TRUE(isSilent(sentTo(0, 2)));
    EXPECT_EQ(sentTo(1, 2), sweep());
}

TEST_F(RpcHandlerStimuliTest, AppliesTheGainOfTheSpeaker) {
    start();
    setGain(1, kHalf);
    prepare(sweepThrough({1}));
    play();
    const auto gain = static_cast<double>(RpcHandler::decibelToLinearClamped(kHalf, 0.0, -12.0));
    EXPECT_NEAR(gain, 0.5, 1e-6);
    const auto whole = sweep();
    const auto played = sentTo(1, 2);
    ASSERT_EQ(played.size(), whole.size());
    for (std::size_t i = 0; i < whole.size(); ++i)
        ASSERT_EQ(played[i], static_cast<std::int32_t>(std::round(gain * whole[i]))) << i;
}

TEST_F(RpcHandlerStimuliTest, IsSilentUntilAGainIsSet) {
    start();
    prepare(sweepThrough({0}));
    play();
    EXPECT_TRUE(isSilent(sentTo(0, 2)));
    EXPECT_THAT(sender().sent(), SizeIs(kSweepChunks));
}

TEST_F(RpcHandlerStimuliTest, ReadsTheGainForEachChunk) {
    start();
    setGain(0, 0.0);
    sender().hold();
    prepare(sweepThrough({0}));
    const auto playback = startStimuli();
    sender().letThrough();
    // The second chunk waits, with the gain that it has been given.
    ASSERT_TRUE(eventually([] { return sender().sends() == 1 && sender().isHolding(); }));
    setGain(0, -12.0);
    sender().letAllThrough();
    EXPECT_EQ(playback->finish(), "OK");
    const auto whole = sweep();
    const auto played = sentTo(0, 2);
    const double gain = RpcHandler::decibelToLinearClamped(-12.0, 0.0, -12.0);
    EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + 2 * kChunk, played.begin()));
    EXPECT_EQ(played[2 * kChunk], std::lround(gain * whole[2 * kChunk]));
}

TEST_F(RpcHandlerStimuliTest, PlaysTheSpeakersInTheOrderOfTheList) {
    start();
    setGain(0, 0.0);
    setGain(1, 0.0);
    prepare(sweepThrough({1, 0, 1}, 1));
    play();
    EXPECT_THAT(playedSpeakers(), ElementsAre(1, 0, 1));
    ASSERT_THAT(sender().sent(), SizeIs(3));
}

TEST_F(RpcHandlerStimuliTest, PlaysAllSpeakersAndTheFirstOneAgainForAnEmptyList) {
    description.speakers.append({QStringLiteral("Centre"), 1, 0});
    start();
    prepare(sweepThrough({}, 1));
    play();
    EXPECT_THAT(playedSpeakers(), ElementsAre(0, 1, 2, 0));
}

TEST_F(RpcHandlerStimuliTest, PlaysWhatWasPreparedAgainAndAgain) {
    start();
    prepare(sweepThrough({0}, 1));
    play();
    play();
    EXPECT_THAT(playedSpeakers(), ElementsAre(0, 0));
}

TEST_F(RpcHandlerStimuliTest, PlaysASweepOfAnySampleRateInTheFormatOfTheStream) {
    start();
    prepare(sweepThrough({0}, 1));
    play();
    EXPECT_THAT(calls(), Contains("format 48000 2 6"));
    EXPECT_TRUE(
        logged("INFO Start_freq: 10 End_freq: 300 Lenght: 4000 Silence: 0 Num_periods: 1 "
               "Samplerate: 8000 Fade_out_tail_hz: 0"));
}

// ---- Progress ----

TEST_F(RpcHandlerStimuliTest, TellsThePercentageLessOne) {
    start();
    prepare(sweepThrough({0, 1}));
    const auto progress = play();
    constexpr std::uint64_t kSize = 4 * kSweepLength;
    std::vector<float> expected{0.0F};
    for (const std::uint64_t done : {0, 1}) {
        for (std::uint64_t chunk = 1; chunk <= kSweepChunks; ++chunk) {
            const std::uint64_t position = std::min<std::uint64_t>(chunk * 32768, kSize);
            const std::uint64_t percent = (position + done * kSize) / (2 * kSize / 100);
            expected.push_back(static_cast<float>(percent) - 1.0F);
        }
    }
    expected.push_back(1.0F);
    EXPECT_EQ(progress, expected);
    EXPECT_EQ(progress[progress.size() - 2], 99.0F);
}

TEST_F(RpcHandlerStimuliTest, BeginsTheProgressAtMinusOne) {
    start();
    prepare(sweepThrough(std::vector<int>(20, 0), 0));
    const auto progress = play();
    ASSERT_GE(progress.size(), 3U);
    EXPECT_EQ(progress[0], 0.0F);
    EXPECT_EQ(progress[1], -1.0F) << "the first chunk is less than a percent";
    EXPECT_THAT(progress, testing::Each(AllOf(Ge(-1.0F), Le(100.0F))));
    EXPECT_EQ(progress.back(), 1.0F);
}

TEST_F(RpcHandlerStimuliTest, EndsAnEmptyStimulus) {
    addSubwoofer();
    description.stimuliSampleRate = 2;  // so that the short sweep has one sample, which is none
    start();
    prepare(noiseThrough({0}));
    EXPECT_THAT(play(), ElementsAre(0.0F, 1.0F));
}

// ---- Noise ----

TEST_F(RpcHandlerStimuliTest, RepeatsNoiseUntilTheClientCancels) {
    start();
    setGain(0, 0.0);
    prepare(noiseThrough({0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().sends() > 2 * 32; }));
    playback->cancel();
    EXPECT_THAT(playback->finish(), HasSubstr("CANCELLED"));
    ASSERT_TRUE(eventually([] { return calls().back() == "close"; }));
    EXPECT_TRUE(logged("INFO Generating pink noise!"));
    EXPECT_EQ(sender().sent()[0], sender().sent()[32]) << "the same noise again";
}

TEST_F(RpcHandlerStimuliTest, PlaysTheShortSweepInPlaceOfNoiseWhenASubwooferIsFirst) {
    addSubwoofer();
    start();
    setGain(0, 0.0);
    prepare(noiseThrough({0, 1}, 5));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().sends() > 4; }));
    playback->cancel();
    playback->finish();
    const auto sweep =
        pcmOf(generateLogSweep(10.0, 300.0, kSampleRate / 2, 0, 1, kSampleRate, 0.0));
    const auto first = sender().sent().front();
    ASSERT_EQ(first.size(), 3 * sweep.size());
    EXPECT_EQ(first[3 * 777], sweep[777]);
    EXPECT_TRUE(logged("INFO Generating pink noise!"));
}

TEST_F(RpcHandlerStimuliTest, LetsTheFirstSpeakerOfAnEmptyListDecideTheKindOfNoise) {
    addSubwoofer();
    start();
    prepare(noiseThrough({}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().sends() > 4; }));
    playback->cancel();
    playback->finish();
    EXPECT_EQ(sender().sent().front().size(), 3U * kSampleRate / 2) << "the short sweep";
}

TEST_F(RpcHandlerStimuliTest, PlaysNoiseThroughASubwooferThatIsNotFirst) {
    addSubwoofer();
    start();
    prepare(noiseThrough({1, 0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().sends() > 4; }));
    playback->cancel();
    playback->finish();
    EXPECT_EQ(sender().sent().front().size(), 3 * kChunk);
}

// ---- Time ----

TEST_F(RpcHandlerStimuliTest, WaitsForTheStartTime) {
    start();
    prepare(sweepThrough({0}, 1));
    const auto begin = Clock::now();
    const auto playback = startStimuli(in(500ms));
    ASSERT_TRUE(eventually([] { return sender().sends() > 0; }));
    EXPECT_GE(Clock::now() - begin, 490ms);
    EXPECT_LT(Clock::now() - begin, 2s);
    EXPECT_EQ(playback->finish(), "OK");
    const auto lines = log().lines();
    EXPECT_THAT(
        lines,
        Contains(testing::MatchesRegex("INFO Playback is starting in: (500|4[0-9][0-9]) ms")));
}

TEST_F(RpcHandlerStimuliTest, StartsAtOnceWhenTheStartTimeIsPast) {
    start();
    prepare(sweepThrough({0}, 1));
    EXPECT_EQ(startStimuli(in(-10s))->finish(), "OK");
    EXPECT_FALSE(log().contains("Playback is starting in: "));
}

TEST_F(RpcHandlerStimuliTest, CancelsAPlaybackThatWaitsForAStartYearsAhead) {
    start();
    prepare(sweepThrough({0}, 1));
    for (const std::uint64_t time : {in(24h * 365 * 20), ~std::uint64_t{0}}) {
        CallLog::instance().clear();
        const auto playback = startStimuli(time);
        ASSERT_TRUE(eventually([] { return !calls().empty() && calls().back() == "filter off"; }));
        playback->cancel();
        EXPECT_THAT(playback->finish(), HasSubstr("CANCELLED"));
        EXPECT_TRUE(eventually([] { return calls().back() == "mixing on"; }));
        EXPECT_THAT(calls(), ElementsAre("mixing off", "filter off", "filter off", "mixing on"));
    }
    EXPECT_FALSE(log().contains("Playback is starting in: "));
}

TEST_F(RpcHandlerStimuliTest, StopsTheServerWhileAPlaybackWaitsForItsStart) {
    start();
    prepare(sweepThrough({0}, 1));
    const auto playback = startStimuli(in(24h));
    ASSERT_TRUE(eventually([] { return !calls().empty() && calls().back() == "filter off"; }));
    const auto begin = Clock::now();
    activateNode(VeskDiracRestartServerPath());
    EXPECT_LT(Clock::now() - begin, 5s);
    EXPECT_NE(playback->finish(), "OK");
    EXPECT_EQ(calls().back(), "mixing on");
}

TEST_F(RpcHandlerStimuliTest, WaitsForTheTail) {
    start();
    prepare(sweepThrough({0}, 1));
    const auto begin = Clock::now();
    play();
    EXPECT_GE(Clock::now() - begin, kTail);
    EXPECT_LT(Clock::now() - begin, kTail + 3s);
}

// ---- One at a time ----

TEST_F(RpcHandlerStimuliTest, RefusesASecondPlaybackAfterAWait) {
    start();
    sender().hold();
    prepare(sweepThrough({0}));
    const auto first = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().isHolding(); }));
    const auto begin = Clock::now();
    EXPECT_EQ(startStimuli()->finish(), "RESOURCE_EXHAUSTED \"Stimuli playback already active\"");
    EXPECT_GE(Clock::now() - begin, 1800ms);
    EXPECT_TRUE(logged("WARN Stimuli playback already active"));
    sender().letAllThrough();
    EXPECT_EQ(first->finish(), "OK");
}

TEST_F(RpcHandlerStimuliTest, TakesASecondPlaybackThatTheFirstMakesWayForInTime) {
    start();
    prepare(sweepThrough({0}, 1));
    const auto first = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().sends() == 1; }));
    EXPECT_EQ(startStimuli()->finish(), "OK") << "the tail of the first takes 1.5 s";
    EXPECT_EQ(first->finish(), "OK");
}

TEST_F(RpcHandlerStimuliTest, PlaysNothingForACallThatEndedWhileAnotherPlayed) {
    start();
    prepare(sweepThrough({0}, 1));
    const auto first = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().sends() == 1; }));
    const auto second = startStimuli();
    ASSERT_TRUE(eventually([this] { return countLogged(kStartsStimuli) == 2; }));
    second->cancel();
    EXPECT_THAT(second->finish(), HasSubstr("CANCELLED"));
    EXPECT_EQ(first->finish(), "OK");
    EXPECT_TRUE(eventually([this] { return logged(kStimuliCancelled); }));
    EXPECT_EQ(std::ranges::count(calls(), "playing"), 1);
    EXPECT_EQ(sender().sends(), 1U);
    EXPECT_EQ(calls().back(), "mixing on");
}

// ---- Early ends ----

TEST_F(RpcHandlerStimuliTest, EndsAfterTheChunkInWhichTheClientCancels) {
    start();
    sender().hold();
    prepare(sweepThrough({0}));
    const auto playback = startStimuli();
    sender().letThrough();
    ASSERT_TRUE(eventually([] { return sender().sends() == 1 && sender().isHolding(); }));
    playback->cancel();
    EXPECT_THAT(playback->finish(), HasSubstr("CANCELLED"));
    std::this_thread::sleep_for(50ms);  // the cancellation reaches the server on its own way
    sender().letAllThrough();
    ASSERT_TRUE(eventually([] { return calls().back() == "close"; }));
    EXPECT_LE(sender().sends(), 3U);
    EXPECT_TRUE(
        logs("TRACE Leave virtual grpc::Status RpcHandler::StartStimuli(grpc::ServerContext*, "
             "const dio::endpoint::StimuliStart*, grpc::ServerWriter<dio::endpoint::Progress>*): "
             "RETURN: CANCELLED"));
    EXPECT_THAT(calls(), ElementsAre("mixing off", "filter off", "playing",
                                     "open smtDiracPlayerSocket 0 2 1", "format 48000 2 6",
                                     "sequence", "not playing", "not playing", "end", "filter off",
                                     "mixing on", "close"));
}

TEST_F(RpcHandlerStimuliTest, EndsNoiseWhenThePlayerIsStopped) {
    start();
    prepare(noiseThrough({0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().sends() > 3; }));
    stopPlayerFromOutside();
    std::string result;
    const auto progress = progressOf(*playback, &result);
    EXPECT_EQ(result, "OK");
    EXPECT_EQ(progress.back(), 1.0F);
    EXPECT_TRUE(
        logged("WARN Player stopped while stimuli generation is active, stopping generator"));
    EXPECT_TRUE(logged("WARN Disabling send on stimuli SMT pipeline"));
}

TEST_F(RpcHandlerStimuliTest, FreesASendThatWaitsForAPlayerThatIsStopped) {
    start();
    sender().hold();
    prepare(noiseThrough({0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().isHolding(); }));
    stopPlayerFromOutside();
    EXPECT_EQ(playback->finish(), "OK");
    EXPECT_THAT(CallLog::instance().calls(), Contains("disable"));
    EXPECT_EQ(sender().sends(), 0U);
}

TEST_F(RpcHandlerStimuliTest, WarnsOfTheStopThatEndsAnOrdinarySweep) {
    start();
    prepare(sweepThrough({0}, 1));
    play();
    EXPECT_TRUE(logs("WARN Player stopped while stimuli generation is active, stopping generator"));
    settle();
    const auto warnings = [this] {
        return countLogged(
            "WARN Player stopped while stimuli generation is active, stopping generator");
    };
    EXPECT_EQ(warnings(), 1U);
    stopPlayerFromOutside();
    settle();
    EXPECT_EQ(warnings(), 1U) << "the first stop has cleared the flag";
}

TEST_F(RpcHandlerStimuliTest, PlaysOnWhenTheEndOfAnEarlierPlaybackIsReportedLate) {
    start();
    prepare(sweepThrough({0}));
    std::unique_ptr<Playback> second;
    inWorkerThread([&] {
        play();
        sender().hold();
        second = startStimuli();
        ASSERT_TRUE(eventually([] { return sender().isHolding(); }));
    });
    settle();
    EXPECT_TRUE(logged("DEBUG notifyPlayerStateChanged: Stopped"));
    EXPECT_FALSE(
        logged("WARN Player stopped while stimuli generation is active, stopping generator"));
    sender().letAllThrough();
    EXPECT_EQ(second->finish(), "OK");
    EXPECT_EQ(sender().sends(), 2 * kSweepChunks);
}

TEST_F(RpcHandlerStimuliTest, EndsNoiseWhenItsStopIsReportedLate) {
    start();
    prepare(noiseThrough({0}));
    std::unique_ptr<Playback> playback;
    inWorkerThread([&] {
        playback = startStimuli();
        ASSERT_TRUE(eventually([] { return sender().sends() > 0; }));
        stopPlayerFromOutside();
    });
    EXPECT_EQ(playback->finish(), "OK");
}

TEST_F(RpcHandlerStimuliTest, PlaysOnWhenTheStreamCannotBeOpened) {
    start();
    sender().failToOpen();
    prepare(sweepThrough({0}, 1));
    play();
    EXPECT_TRUE(logged("ERROR Failed to initalize smt Sender"));
    EXPECT_EQ(calls(), kWholePlayback);
}

// ---- Failures ----

TEST_F(RpcHandlerStimuliTest, EndsProperlyWhenSendingThrows) {
    start();
    sender().throwOn("send");
    prepare(sweepThrough({0}));
    EXPECT_EQ(startStimuli()->finish(), "UNKNOWN \"Unexpected error in RPC handling\"");
    EXPECT_EQ(calls(), kWholePlayback);
    sender().reset();
    play();
}

TEST_F(RpcHandlerStimuliTest, GoesThroughTheEndAlthoughAStepOfItThrows) {
    start();
    sender().throwOn("end");
    prepare(sweepThrough({0}, 1));
    play();
    EXPECT_EQ(calls(), kWholePlayback);
    EXPECT_TRUE(
        logged("ERROR A playback could not be ended properly: The stand-in was told to fail"));
}

TEST_F(RpcHandlerStimuliTest, UndoesWhatWasBegunWhenTheStartThrows) {
    start();
    sender().throwOn("open smtDiracPlayerSocket 0 2 1");
    prepare(sweepThrough({0}));
    EXPECT_EQ(startStimuli()->finish(), "UNKNOWN \"Unexpected error in RPC handling\"");
    EXPECT_THAT(calls(), ElementsAre("mixing off", "filter off", "playing",
                                     "open smtDiracPlayerSocket 0 2 1", "not playing", "end",
                                     "filter off", "mixing on", "close"));
}

TEST_F(RpcHandlerStimuliTest, StopsTheServerInTheMiddleOfNoise) {
    start();
    prepare(noiseThrough({0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().sends() > 3; }));
    const auto begin = Clock::now();
    activateNode(VeskDiracRestartServerPath());
    EXPECT_LT(Clock::now() - begin, kTail + 3s);
    EXPECT_NE(playback->finish(), "OK");
    EXPECT_EQ(calls().back(), "close");
}

TEST_F(RpcHandlerStimuliTest, EndsTheDeviceInTheMiddleOfNoise) {
    start();
    prepare(noiseThrough({0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return sender().sends() > 3; }));
    stopDevice();
    EXPECT_NE(playback->finish(), "OK");
    EXPECT_EQ(calls().back(), "close");
}

// ---- The filter ----

TEST_F(RpcHandlerStimuliTest, BypassesTheFilterInTheSegmentWhileItPlays) {
    startDevice();
    activateFilter();
    const auto playback = startHeldSweep();
    EXPECT_TRUE(eventually([] { return image().bypass == 1; }));
    EXPECT_TRUE(settings().filteringEnabled()) << "the user's choice";
    sender().letAllThrough();
    EXPECT_EQ(playback->finish(), "OK");
    EXPECT_TRUE(eventually([] { return image().bypass == 0; }));
    EXPECT_EQ(runtimeSlots(), settings());
}

TEST_F(RpcHandlerStimuliTest, KeepsTheFilterOffWhenTheSettingsChangeMeanwhile) {
    startDevice();
    activateFilter();
    const auto playback = startHeldSweep();
    transferFir(2, "Armchair", {0.25F}, 2);
    EXPECT_EQ(write(VeskDiracActiveFilterPath(), VeskValue::ofI32(2)), "");
    settle();
    EXPECT_TRUE(runtimeIsBypassed());
    EXPECT_EQ(runtimeSlots().activeSlot(), 2);
    EXPECT_EQ(image().bypass, 1U);
    EXPECT_EQ(settings().activeSlot(), 2);
    sender().letAllThrough();
    EXPECT_EQ(playback->finish(), "OK");
    EXPECT_TRUE(eventually([] { return image().bypass == 0; }));
    EXPECT_EQ(segmentTaps(0, 1), std::vector<float>{0.25F}) << "what was chosen meanwhile";
}

TEST_F(RpcHandlerStimuliTest, KeepsTheFilterOffWhenAReportOfTheSettingsIsStillOnItsWay) {
    startDevice();
    activateFilter();
    sender().hold();
    prepare(sweepThrough({0}, 1));
    std::unique_ptr<Playback> playback;
    inWorkerThread([&] {
        // The worker is busy: what it is told of the settings waits behind the bypass.
        VeskDiracSlotsList list = settings();
        list.setDelayGainEnabled(true);
        EXPECT_EQ(write(VeskDiracSlotsSettingsPath(), VeskValue::of(list)), "");
        playback = startStimuli();
        ASSERT_TRUE(eventually([] { return sender().isHolding(); }));
    });
    settle();
    EXPECT_TRUE(runtimeIsBypassed());
    EXPECT_EQ(image().bypass, 1U);
    sender().letAllThrough();
    EXPECT_EQ(playback->finish(), "OK");
    settle();
    EXPECT_EQ(runtimeSlots(), settings());
}

TEST_F(RpcHandlerStimuliTest, KeepsTheFilterOffWhenTheReloadIsForced) {
    startDevice();
    activateFilter();
    const auto playback = startHeldSweep();
    activateNode(VeskDiracForceReloadFilterPath());
    settle();
    EXPECT_TRUE(runtimeIsBypassed());
    sender().letAllThrough();
    EXPECT_EQ(playback->finish(), "OK");
}

TEST_F(RpcHandlerStimuliTest, KeepsTheFilterOffUntilTheLastOfTwoPlaybacksHasEnded) {
    startDevice();
    activateFilter();
    const auto playback = startHeldSweep();
    const auto recording = startRecording(in(24h));
    ASSERT_TRUE(eventually([] { return std::ranges::count(calls(), "mixing off") == 2; }));
    recording->cancel();
    recording->finish();
    EXPECT_TRUE(eventually(
        [] { return StandInMicrophone::instance().requests().back() == "release Dirac 3"; }));
    settle();
    EXPECT_TRUE(runtimeIsBypassed());
    EXPECT_THAT(calls(), testing::Not(Contains("mixing on")));
    sender().letAllThrough();
    EXPECT_EQ(playback->finish(), "OK");
    EXPECT_TRUE(eventually([] { return image().bypass == 0; }));
}

TEST_F(RpcHandlerStimuliTest, HoldsNoLockOfTheSlotsWhileItPlays) {
    startDevice();
    activateFilter();
    const auto playback = startHeldSweep();
    EXPECT_EQ(ask(&Stub::GetActiveSlot, Void()).value(), 1);
    transferFir(3, "Bed", {1.0F}, 3);
    sender().letAllThrough();
    EXPECT_EQ(playback->finish(), "OK");
}
