#include "calibrate/Errors.h"
#include "calibrate/Upload.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <thread>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::int64_t now() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

class UploadTest : public CommandFixture {
protected:
    int upload(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"upload", "--slot", "1"});
        return run(arguments);
    }

    /// Taps that the device holds for a speaker at a variant.
    std::vector<float> taps(unsigned speaker, unsigned variant) const {
        return device_.stored().at(1).taps.at({speaker, variant});
    }

    void expectRefusedBeforeTransfer(const std::vector<std::string>& arguments,
                                     const std::string& saying) {
        EXPECT_EQ(upload(arguments), kExitUsage);
        EXPECT_THAT(errors(), HasSubstr(saying));
        EXPECT_EQ(device_.callsOf("BeginFilterTransfer"), 0);
    }

    std::string stereo(const std::string& name = "stereo.wav") {
        return wav(name, 48000, {decayingFilter(1000, 1), decayingFilter(1000, 2)});
    }
};

TEST_F(UploadTest, TransfersEachSpeakerOnceForEachVariant) {
    ASSERT_EQ(upload({stereo()}), kExitOk) << errors();

    auto calls = device_.calls();
    calls.erase(calls.begin(), std::find(calls.begin(), calls.end(), "BeginFilterTransfer"));
    calls.resize(8);
    EXPECT_THAT(calls,
                ElementsAre("BeginFilterTransfer", "SetTransferCell", "SetCellFIIR", "SetCellFIIR",
                            "SetTransferCell", "SetCellFIIR", "SetCellFIIR", "EndFilterTransfer"));
}

TEST_F(UploadTest, FiltersAtTheDevicesRateArriveExactly) {
    const std::vector<double> left{0.1F, 1.0F / 3, -1e-20F};
    const std::vector<double> right{-0.7F, 5, 0};
    ASSERT_EQ(upload({wav("a.wav", 48000, {left, right})}), kExitOk) << errors();

    EXPECT_EQ(taps(0, 0), std::vector<float>(left.begin(), left.end()));
    EXPECT_EQ(taps(1, 0), std::vector<float>(right.begin(), right.end()));
}

TEST_F(UploadTest, AFileForEachRateArrivesExactly) {
    ASSERT_EQ(upload({wav("48.wav", 48000, {{1, 2}, {3, 4}}), wav("44.wav", 44100, {{5}, {6}})}),
              kExitOk)
        << errors();

    EXPECT_THAT(taps(0, 0), ElementsAre(1, 2));
    EXPECT_THAT(taps(1, 0), ElementsAre(3, 4));
    EXPECT_THAT(taps(0, 1), ElementsAre(5));
    EXPECT_THAT(taps(1, 1), ElementsAre(6));
    EXPECT_THAT(output(), Not(HasSubstr("resampled")));
}

TEST_F(UploadTest, ResamplesForTheOtherRateAndSaysHowWell) {
    ASSERT_EQ(upload({stereo()}), kExitOk);

    EXPECT_GT(taps(0, 1).size(), 900U);
    EXPECT_LE(taps(0, 1).size(), 1000U);
    EXPECT_THAT(output(),
                AllOf(HasSubstr("Living room, 2 speakers:"),
                      HasSubstr("48 kHz: 1000 taps, as in the files"), HasSubstr("44.1 kHz"),
                      HasSubstr("resampled from 48 kHz"), HasSubstr("dB up to 20 kHz")));
}

TEST_F(UploadTest, RawFilesAreTakenInOrder) {
    writeRaw(path("left.f32"), {1, 2});
    writeRaw(path("right.f32"), {3, 4});
    ASSERT_EQ(upload({"--rate", "48000", path("left.f32"), path("right.f32")}), kExitOk)
        << errors();

    EXPECT_THAT(taps(0, 0), ElementsAre(1, 2));
    EXPECT_THAT(taps(1, 0), ElementsAre(3, 4));
}

TEST_F(UploadTest, SpeakersThatAreNotNamedStayAsTheyAre) {
    ASSERT_EQ(
        upload({"--speaker", "Front right=" + wav("a.wav", 48000, {{1, 0}, {0.5, 0.5}}) + ":1"}),
        kExitOk)
        << errors();

    EXPECT_THAT(taps(0, 0), ElementsAre(1));
    EXPECT_THAT(taps(1, 0), ElementsAre(0.5, 0.5));
}

TEST_F(UploadTest, GainsApplyToAllFilesOrToEach) {
    const std::string left = wav("l.wav", 48000, {{1}});
    const std::string right = wav("r.wav", 48000, {{1}});
    ASSERT_EQ(upload({"--gain", "-20", left, right}), kExitOk) << errors();
    EXPECT_THAT(taps(0, 0), ElementsAre(0.1F));
    EXPECT_THAT(taps(1, 0), ElementsAre(0.1F));

    ASSERT_EQ(upload({"--gain", "-20", "--gain", "6", left, right}), kExitOk) << errors();
    EXPECT_THAT(taps(0, 0), ElementsAre(0.1F));
    EXPECT_FLOAT_EQ(taps(1, 0).at(0), 1.9952623F);
}

TEST_F(UploadTest, TheSlotIsDescribed) {
    const auto before = now();
    ASSERT_EQ(upload({"--name", "Küche", "--type", "Mixed phase", "--description", "third try",
                      stereo()}),
              kExitOk);

    const auto slot = device_.stored().at(1).info;
    EXPECT_EQ(slot.name(), "Küche");
    EXPECT_EQ(slot.filter_type_name(), "Mixed phase");
    EXPECT_EQ(slot.description(), "third try");
    EXPECT_GE(slot.creation_time(), before);
    EXPECT_LE(slot.creation_time(), now() + 1);
}

TEST_F(UploadTest, TheFileNamesTheSlotUnlessSaid) {
    ASSERT_EQ(upload({stereo("evening.wav")}), kExitOk);

    EXPECT_EQ(device_.stored().at(1).info.name(), "evening");
    EXPECT_EQ(device_.stored().at(1).info.filter_type_name(), "FIR");
    EXPECT_THAT(output(), AllOf(HasSubstr("Stored in slot 1 \"evening\""),
                                HasSubstr("vesk-calibrate activate 1")));
}

TEST_F(UploadTest, AFilterThatIsReplacedIsNamed) {
    device_.store(1, "Old", 5);
    ASSERT_EQ(upload({stereo()}), kExitOk);

    EXPECT_THAT(output(), HasSubstr("holds \"Old\", which is replaced"));
}

TEST_F(UploadTest, ActivatesWhenToldTo) {
    device_.setMode(true, true, false);
    ASSERT_EQ(upload({"--activate", stereo()}), kExitOk);

    EXPECT_EQ(device_.activeSlot(), 1);
    EXPECT_TRUE(device_.mode().filtering());
    EXPECT_THAT(output(), HasSubstr("which is active"));
}

TEST_F(UploadTest, AFilterThatArrivedButIsNotActivatedIsTold) {
    device_.setMode(true, true, false);
    device_.keepsCorrectionOff = true;

    EXPECT_EQ(upload({"--activate", stereo()}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("the filter is stored in slot 1, but the device did not switch "
                                    "its correction on"));
    EXPECT_EQ(device_.stored().count(1), 1U);
}

TEST_F(UploadTest, ShowsProgressAsLines) {
    ASSERT_EQ(upload({stereo()}), kExitOk);

    EXPECT_EQ(errors(),
              "  0 %  opening the transfer\n"
              "  0 %  sending speaker 0 \"Front left\"\n"
              " 40 %  sending speaker 1 \"Front right\"\n"
              " 80 %  storing\n");
}

TEST_F(UploadTest, SaysNothingWhenQuiet) {
    ASSERT_EQ(upload({"--quiet", stereo()}), kExitOk);

    EXPECT_EQ(output() + errors(), "");
}

TEST_F(UploadTest, ReportsAsJson) {
    ASSERT_EQ(upload({"--json", stereo()}), kExitOk);

    const json report = json::parse(output());
    EXPECT_EQ(report["slot"], 1);
    EXPECT_EQ(report["name"], "stereo");
    EXPECT_EQ(report["active"], false);
    EXPECT_EQ(report["variants"][0]["resampled"], nullptr);
    EXPECT_EQ(report["variants"][0]["speakers"][1],
              (json{{"speaker", "Front right"}, {"taps", 1000}}));
    EXPECT_EQ(report["variants"][1]["sample_rate_hz"], 44100);
    EXPECT_LE(report["variants"][1]["resampled"]["deviation_db"], 0.01);
}

TEST_F(UploadTest, TheDevicesOwnRatesAndCapacitiesCount) {
    device_.variants.resize(1);
    device_.variants[0].set_sample_rate(96000);
    device_.variants[0].set_max_taps(3);
    ASSERT_EQ(upload({wav("a.wav", 96000, {{1, 2, 3}, {4, 5, 6}})}), kExitOk) << errors();
    EXPECT_THAT(taps(1, 0), ElementsAre(4, 5, 6));

    EXPECT_EQ(upload({wav("b.wav", 96000, {{1, 2, 3, 4}, {4, 5, 6, 7}})}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("holds 3 at 96 kHz"));
}

TEST_F(UploadTest, ATooLongFilterIsRefusedBeforeTheTransfer) {
    expectRefusedBeforeTransfer({wav("long.wav", 48000, {std::vector<double>(1001, 0.01)})},
                                "long.wav: 1001 taps at 48 kHz, but the device holds 1000");
}

TEST_F(UploadTest, WrongFilesAreRefusedBeforeAnythingIsAsked) {
    EXPECT_EQ(upload({path("missing.wav")}), kExitUsage);
    EXPECT_THAT(errors(), AllOf(HasSubstr("missing.wav"), HasSubstr("no such file")));
    EXPECT_THAT(device_.calls(), IsEmpty());
}

TEST_F(UploadTest, TooFewChannelsAreRefusedBeforeTheTransfer) {
    expectRefusedBeforeTransfer({wav("mono.wav", 48000, {{1}})}, "1 channel");
}

TEST_F(UploadTest, ASlotThatTheDeviceDoesNotHaveIsRefused) {
    EXPECT_EQ(run({"upload", "--slot", "8", stereo()}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("slots 0 to 7"));
    EXPECT_EQ(run({"upload", "--slot", "-1", stereo()}), kExitUsage);
    EXPECT_EQ(device_.callsOf("BeginFilterTransfer"), 0);
}

TEST_F(UploadTest, ANumberOfGainsThatFitsNothingIsRefused) {
    expectRefusedBeforeTransfer({"--gain", "1", "--gain", "2", stereo()}, "2 gains for 1 file");
}

TEST_F(UploadTest, AGainThatOverflowsIsRefused) {
    expectRefusedBeforeTransfer({"--gain", "60", wav("a.wav", 48000, {{1e38}, {1}})}, "too large");
}

TEST_F(UploadTest, ADeviceWithoutSpeakerFiltersIsTold) {
    device_.lack("GetFIIRInfo");
    EXPECT_EQ(upload({stereo()}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("GetFIIRInfo"));

    device_.variants.clear();
    EXPECT_EQ(upload({stereo()}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("cannot hold a filter for each speaker"));
}

TEST_F(UploadTest, EachStepThatFailsIsNamedAndNothingIsStored) {
    for (const char* method : {"BeginFilterTransfer", "SetTransferCell", "SetCellFIIR"}) {
        device_.fail(method, {grpc::StatusCode::INVALID_ARGUMENT, "not today"},
                     device_.callsOf(method));
        EXPECT_EQ(upload({stereo()}), kExitDevice);
        EXPECT_THAT(errors(), AllOf(HasSubstr(std::string(method) + ": the device says: not today"),
                                    HasSubstr("nothing was stored")));
    }
    EXPECT_EQ(device_.callsOf("EndFilterTransfer"), 0);
    EXPECT_THAT(device_.stored(), IsEmpty());
}

TEST_F(UploadTest, AFailureInTheMiddleLeavesTheOldFilter) {
    device_.store(1, "Old", 5);
    device_.fail("SetCellFIIR", {grpc::StatusCode::UNAVAILABLE, "Socket closed"}, 3);

    EXPECT_EQ(upload({stereo()}), kExitDevice);
    EXPECT_THAT(errors(),
                AllOf(HasSubstr("broke (Socket closed)"), HasSubstr("nothing was stored")));
    EXPECT_EQ(device_.stored().at(1).info.name(), "Old");
}

TEST_F(UploadTest, ARefusedEndStoresNothing) {
    device_.fail("EndFilterTransfer", {grpc::StatusCode::INVALID_ARGUMENT, "wrong slot index"});

    EXPECT_EQ(upload({stereo()}), kExitDevice);
    EXPECT_THAT(errors(), AllOf(HasSubstr("EndFilterTransfer: the device says: wrong slot index"),
                                HasSubstr("nothing was stored")));
}

TEST_F(UploadTest, AnEndThatBreaksIsNotCalledOneWayOrTheOther) {
    device_.fail("EndFilterTransfer", {grpc::StatusCode::UNAVAILABLE, "Socket closed"});

    EXPECT_EQ(upload({stereo()}), kExitDevice);
    EXPECT_THAT(errors(), AllOf(HasSubstr("may hold the new filter or none"),
                                Not(HasSubstr("nothing was stored"))));
}

TEST_F(UploadTest, ADeviceThatDoesNotShowWhatItAcceptedIsTold) {
    device_.hold("EndFilterTransfer");
    std::jthread other([this] {
        device_.awaitHeld();
        device_.fail("GetSlotInfo", {grpc::StatusCode::INTERNAL, "lost"}, 1);
        device_.release();
    });

    EXPECT_EQ(upload({stereo()}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("GetSlotInfo: the device says: lost"));
}

TEST_F(UploadTest, AnInterruptedTransferStoresNothing) {
    device_.hold("SetCellFIIR");
    std::jthread user([this] {
        device_.awaitHeld();
        stop_.request_stop();
    });

    EXPECT_EQ(upload({stereo()}), kExitInterrupted);
    EXPECT_THAT(errors(), HasSubstr("vesk-calibrate: interrupted; nothing was stored\n"));
    EXPECT_THAT(device_.stored(), IsEmpty());
}

TEST_F(UploadTest, AnInterruptionWhileTheDeviceStoresIsNotCalledOneWayOrTheOther) {
    device_.hold("EndFilterTransfer");
    std::jthread user([this] {
        device_.awaitHeld();
        stop_.request_stop();
    });

    EXPECT_EQ(upload({stereo()}), kExitInterrupted);
    EXPECT_THAT(errors(), HasSubstr("interrupted; slot 1 may hold the new filter or none"));
}

TEST_F(UploadTest, TheFiltersOfARealRoomArriveExactly) {
    if (testData().empty())
        GTEST_SKIP() << "no measured data here";
    const auto filters = testData() / "filters";
    const auto file = readFilterFile(filters / "living-room-48k-1000.wav", {});
    ASSERT_EQ(upload({(filters / "living-room-48k-1000.wav").string()}), kExitOk) << errors();
    for (unsigned i = 0; i < 2; ++i)
        EXPECT_EQ(taps(i, 0), std::vector<float>(file.channels[i].begin(), file.channels[i].end()));
    EXPECT_THAT(errors(), Not(HasSubstr("warning")));

    const auto low = readFilterFile(filters / "living-room-44k1-919.wav", {});
    ASSERT_EQ(upload({(filters / "living-room-44k1-919.wav").string()}), kExitOk) << errors();
    for (unsigned i = 0; i < 2; ++i)
        EXPECT_EQ(taps(i, 1), std::vector<float>(low.channels[i].begin(), low.channels[i].end()));

    ASSERT_EQ(upload({(filters / "short-48k-3.wav").string()}), kExitOk) << errors();
    EXPECT_EQ(taps(0, 0).size(), 3U);
}

TEST_F(UploadTest, ARealFilterThatIsTooLongIsRefused) {
    if (testData().empty())
        GTEST_SKIP() << "no measured data here";
    expectRefusedBeforeTransfer({(testData() / "filters/too-long-48k-65536.wav").string()},
                                "65536 taps at 48 kHz, but the device holds 1000");
}

}  // namespace
}  // namespace calibrate
