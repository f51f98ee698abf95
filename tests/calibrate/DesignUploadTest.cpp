#include "calibrate/Errors.h"
#include "calibrate/design/DesignJson.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/support/CommandFixture.h"
#include "calibrate/support/UncorrectedSpeaker.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <fstream>

namespace calibrate {
namespace {

using design::ParallelFilter;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Json = nlohmann::ordered_json;

ParallelFilter filterAt(double sampleRate, float first) {
    return {sampleRate, {first, -1.0F / 3, 0.25F}, {{-1.9F, 0.95F, 0.01F, -0.02F}}};
}

/// A design as it lies in a file, that goes to a device.
class DesignUploadTest : public CommandFixture {
protected:
    DesignUploadTest() {
        addSpeaker("Front left", 0.1F, {0.001, -0.5});
        addSpeaker("Front right", 0.2F, {0, 0});
        device_.setMode(true, true, false);
    }

    void addSpeaker(const std::string& name, float first, const design::Alignment& alignment) {
        auto speaker = design::uncorrectedSpeaker(name);
        speaker.alignment = alignment;
        for (const double rate : {48'000.0, 44'100.0})
            speaker.filters.push_back(filterAt(rate, first + (rate < 48'000 ? 0.5F : 0)));
        design_.speakers.push_back(speaker);
    }

    /// Makes device and design those of a 2.1 system.
    void addSubwoofer() {
        device_.setSpeakers({"Front left", "Front right", "Subwoofer"});
        device_.speakers[2].set_kind(4);
        addSpeaker("Subwoofer", 0.3F, {0, 0});
        design_.speakers[2].subwoofer = true;
        const design::SpeakerLayout layout{{{false, 0}, {false, 0}, {true, 0}}};
        design::BassManagement bass{80, {{0.002, -1}, {0.002, -1}, {0, 0}}, false};
        design_.bass.emplace();
        for (const double rate : {48'000.0, 44'100.0})
            design_.bass->cells.push_back(design::bassCells(layout, bass, {}, rate));
    }

    std::string written(const Json& json) const {
        std::ofstream(path("design.json")) << json.dump();
        return path("design.json");
    }

    int upload(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"upload", "--slot", "1", written(toJson(design_))});
        return run(options);
    }

    void expectRefused(const std::string& saying, const std::vector<std::string>& options = {}) {
        EXPECT_EQ(upload(options), kExitUsage);
        EXPECT_THAT(errors(), AllOf(HasSubstr("design.json: "), HasSubstr(saying)));
        EXPECT_EQ(device_.callsOf("BeginFilterTransfer"), 0);
    }

    void expectHeld(const EndpointDouble::Design& held, std::size_t speaker, std::size_t variant,
                    const ParallelFilter& filter) const {
        const std::pair cell(static_cast<unsigned>(speaker), static_cast<unsigned>(variant));
        EXPECT_EQ(held.taps.at(cell), filter.taps);
        const auto& sections = held.sections.at(cell);
        ASSERT_EQ(sections.size(), filter.sections.size());
        for (std::size_t i = 0; i < sections.size(); ++i) {
            EXPECT_EQ(sections[i].a1(), filter.sections[i].a1);
            EXPECT_EQ(sections[i].a2(), filter.sections[i].a2);
            EXPECT_EQ(sections[i].b0(), filter.sections[i].b0);
            EXPECT_EQ(sections[i].b1(), filter.sections[i].b1);
        }
    }

    design::SystemDesign design_;
};

TEST_F(DesignUploadTest, TheDeviceHoldsWhatWasDesigned) {
    const std::string room =
        wav("room.wav", 48'000, {decayingFilter(4'800, 1), decayingFilter(4'800, 2)});
    ASSERT_EQ(runBare({"design", room, "-o", path("filters")}), kExitOk) << errors();
    ASSERT_EQ(run({"upload", "--slot", "1", path("filters/design.json")}), kExitOk) << errors();

    const auto designed = design::readDesign(path("filters/design.json"));
    const auto held = device_.stored().at(1);
    for (std::size_t speaker = 0; speaker < 2; ++speaker) {
        EXPECT_THAT(designed.speakers[speaker].filters[0].taps, SizeIs(1'000));
        EXPECT_THAT(designed.speakers[speaker].filters[0].sections, SizeIs(30));
        for (std::size_t variant = 0; variant < 2; ++variant)
            expectHeld(held, speaker, variant, designed.speakers[speaker].filters[variant]);
        const auto& alignment = held.alignment.at(static_cast<int>(speaker));
        const auto& expected = designed.speakers[speaker].alignment;
        EXPECT_FLOAT_EQ(alignment.delay(), static_cast<float>(1'000 * expected.delay));
        EXPECT_FLOAT_EQ(alignment.gain(), static_cast<float>(expected.gain));
    }
    EXPECT_THAT(output(), AllOf(HasSubstr("48 kHz: 1000 taps and 30 sections, as in the file"),
                                HasSubstr("Stored in slot 1 \"design\"")));
    EXPECT_EQ(held.info.filter_type_name(), "FIR with parallel sections");
}

TEST_F(DesignUploadTest, FiltersFindTheirVariantInAnyOrder) {
    std::swap(device_.variants[0], device_.variants[1]);
    ASSERT_EQ(upload(), kExitOk) << errors();

    expectHeld(device_.stored().at(1), 1, 0, design_.speakers[1].filters[1]);
    expectHeld(device_.stored().at(1), 1, 1, design_.speakers[1].filters[0]);
}

TEST_F(DesignUploadTest, VariantsThatTheDeviceLacksAreLeftOut) {
    device_.variants.resize(1);
    ASSERT_EQ(upload(), kExitOk) << errors();

    EXPECT_THAT(device_.stored().at(1).taps, SizeIs(2));
}

TEST_F(DesignUploadTest, BassManagementGoesAlong) {
    addSubwoofer();
    ASSERT_EQ(upload(), kExitOk) << errors();

    const auto held = device_.stored().at(1);
    EXPECT_THAT(held.alignment, IsEmpty());
    const auto& cells = design_.bass->cells;
    for (unsigned variant = 0; variant < 2; ++variant) {
        for (const auto& cell : cells[variant]) {
            const std::array<unsigned, 4> key{cell.section, cell.input, cell.output, variant};
            if (cell.section == 2 || cell.section == 4) {
                EXPECT_EQ(held.bassDelays.at(key).delay(), cell.delay);
                EXPECT_EQ(held.bassDelays.at(key).gain(), static_cast<float>(cell.gain));
                continue;
            }
            ASSERT_EQ(held.bassFilters.at(key).biquads_size(),
                      static_cast<int>(cell.biquads.size()));
            for (int i = 0; i < held.bassFilters.at(key).biquads_size(); ++i)
                EXPECT_EQ(held.bassFilters.at(key).biquads(i).b1(),
                          cell.biquads[static_cast<std::size_t>(i)].b1);
        }
    }
    EXPECT_EQ(held.bassDelays.size() + held.bassFilters.size(), 2 * cells[0].size());
}

TEST_F(DesignUploadTest, AGainChangesTheWholeFilter) {
    ASSERT_EQ(upload({"--gain", "-20"}), kExitOk) << errors();

    const auto held = device_.stored().at(1);
    EXPECT_NEAR(held.sections.at({0, 0})[0].b1(), -0.002, 1e-8);
    EXPECT_NEAR(held.taps.at({0, 0})[1], -1.0 / 30, 1e-7);
}

TEST_F(DesignUploadTest, TellsProgramsTapsAndSections) {
    ASSERT_EQ(upload({"--json"}), kExitOk) << errors();

    const Json report = Json::parse(output());
    EXPECT_EQ(report["variants"][1]["sample_rate_hz"], 44'100);
    EXPECT_EQ(report["variants"][1]["speakers"][0],
              (Json{{"speaker", "Front left"}, {"taps", 3}, {"sections", 1}}));
}

TEST_F(DesignUploadTest, AlignmentThatIsSwitchedOffIsToldOf) {
    device_.setMode(false, false, true);
    ASSERT_EQ(upload(), kExitOk);

    EXPECT_THAT(errors(), HasSubstr("warning: the device says that its gain and delay are off"));
}

TEST_F(DesignUploadTest, SpeakersInAnotherOrderAreToldOf) {
    std::swap(design_.speakers[0].name, design_.speakers[1].name);
    ASSERT_EQ(upload(), kExitOk);

    EXPECT_THAT(errors(), HasSubstr("the filter of speaker 0 \"Front right\" goes to speaker 0 "
                                    "\"Front left\", because they count in order; \"Front right\" "
                                    "is the device's speaker 1"));
}

// ---- Bad input ----------------------------------------------------------------------------------

TEST_F(DesignUploadTest, ADesignForOtherSpeakersIsRefused) {
    design_.speakers.pop_back();
    expectRefused("is a design for 1 speaker, but the device has 2");
}

TEST_F(DesignUploadTest, ASubwooferThatIsNoneIsRefused) {
    design_.speakers[1].subwoofer = true;
    expectRefused(
        "its speaker 1 \"Front right\" is a subwoofer, the device's speaker 1 \"Front "
        "right\" is none");
    design_.speakers[1].subwoofer = false;
    device_.speakers[1].set_kind(4);
    expectRefused(
        "the device's speaker 1 \"Front right\" is a subwoofer: design with "
        "--subwoofer 1");
}

TEST_F(DesignUploadTest, MoreTapsThanTheDeviceHasAreRefused) {
    device_.variants[1].set_max_taps(2);
    expectRefused(
        "speaker 0 \"Front left\" has 3 taps at 44.1 kHz, but the device holds 2: "
        "design with --taps 2");
}

TEST_F(DesignUploadTest, MoreSectionsThanTheDeviceHasAreRefused) {
    device_.variants[0].set_max_biquads(0);
    expectRefused(
        "speaker 0 \"Front left\" has 1 section at 48 kHz, but the device holds 0: "
        "design with --sections 0");
}

TEST_F(DesignUploadTest, AMissingVariantIsRefused) {
    device_.variants[1].set_sample_rate(96'000);
    expectRefused(
        "has no filters at 96 kHz, at which the device filters too: design with "
        "--rate 96000 as well");
}

TEST_F(DesignUploadTest, AnAlignmentBeyondTheDeviceIsRefused) {
    design_.speakers[0].alignment.delay = 0.0035;
    expectRefused(
        "speaker 0 \"Front left\" is delayed by 3.50 ms, but the device delays by "
        "3.12 ms at most");
    design_.speakers[0].alignment = {0, -10.5};
    expectRefused("has an alignment of -10.5 dB, but the device changes the level by 10.0 dB");
}

TEST_F(DesignUploadTest, BassManagementThatTheDeviceCannotHoldIsRefused) {
    addSubwoofer();
    auto& cells = design_.bass->cells;
    for (auto& variant : cells)
        variant.front().input = 9;
    expectRefused(
        "in section 0 from 9 to 0, is for another arrangement of speakers; the device "
        "has 3 inputs and 4 outputs there");
    for (auto& variant : cells) {
        variant.front().input = 0;
        variant.front().biquads.resize(7);
    }
    expectRefused("has 7 biquads, but the device holds 6");
    for (auto& variant : cells) {
        variant.front().biquads.clear();
        variant.back().delay = 151;
    }
    expectRefused("delays by 151 samples, but the device delays by 150 at most");
    for (auto& variant : cells) {
        variant.back().delay = 0;
        variant.insert(variant.begin(), 2, variant.front());
    }
    expectRefused("has more than 5 cells of bass management in section 0");
}

TEST_F(DesignUploadTest, RubbishIsRefusedBeforeAnythingIsAsked) {
    writeText(path("design.json"), "{\"format\": 1");
    EXPECT_EQ(run({"upload", "--slot", "1", path("design.json")}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("design.json: is damaged or no JSON, at line 1"));

    Json json = toJson(design_);
    json["speakers"][0]["filters"][0]["taps"][1] = std::nan("");
    EXPECT_EQ(run({"upload", "--slot", "1", written(json)}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("speakers[0].filters[0].taps[1] is no number"));

    json = toJson(design_);
    json["speakers"][1]["filters"][0]["sections"][0]["a2"] = 1.01;
    EXPECT_EQ(run({"upload", "--slot", "1", written(json)}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("speakers[1].filters[0].sections[0] is unstable"));
    EXPECT_THAT(device_.calls(), IsEmpty());
}

TEST_F(DesignUploadTest, ADesignIsGivenAlone) {
    expectRefused("a design holds the filters of all speakers; give it alone",
                  {wav("a.wav", 48'000, {{1}})});
    EXPECT_EQ(run({"upload", "--slot", "1", "--speaker", "0=" + written(toJson(design_))}),
              kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("give it alone"));
    expectRefused("takes one --gain", {"--gain", "1", "--gain", "2"});
}

TEST_F(DesignUploadTest, AFailureInTheMiddleLeavesTheOldFilter) {
    device_.store(1, "Old", 5);
    device_.fail("SetInputGainDelay", {grpc::StatusCode::UNAVAILABLE, "Socket closed"}, 1);

    EXPECT_EQ(upload(), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("nothing was stored"));
    EXPECT_EQ(device_.stored().at(1).info.name(), "Old");
}

}  // namespace
}  // namespace calibrate
