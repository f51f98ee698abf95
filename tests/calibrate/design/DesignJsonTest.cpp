#include "calibrate/Errors.h"
#include "calibrate/design/DesignJson.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/support/UncorrectedSpeaker.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <fstream>

namespace calibrate::design {
namespace {

using testing::HasSubstr;
using Json = nlohmann::ordered_json;
using Pointer = Json::json_pointer;

/// Values that a decimal number cannot hold exactly, small and large.
ParallelFilter filterAt(double sampleRate) {
    return {sampleRate,
            {0.1F, -1.0F / 3, 1e-30F, 3e30F},
            {{-1.9F, 0.95F, 0.01F, -0.02F}, {0.3F, 0.1F, 1.0F / 7, 2.0F / 7}}};
}

SystemDesign stereoDesign() {
    SystemDesign design;
    for (const auto* name : {"Left", "Right"}) {
        auto speaker = uncorrectedSpeaker(name);
        speaker.filters = {filterAt(48'000), filterAt(44'100)};
        speaker.alignment = {0.00125, -1.5};
        design.speakers.push_back(speaker);
    }
    design.speakers[1].filters[1].taps[0] = 0.7F;
    return design;
}

SystemDesign bassDesign() {
    SystemDesign design = stereoDesign();
    design.speakers[1].subwoofer = true;
    design.bass.emplace();
    for (const double rate : {48'000.0, 44'100.0})
        design.bass->cells.push_back(
            {{1, 0, 0, linkwitzRiley(Pass::high, 80, rate), 0, 0}, {4, 0, 1, {}, 17, -2.5}});
    return design;
}

class DesignJsonTest : public testing::Test {
protected:
    DeviceDesign read(const Json& json) { return readText(json.dump()); }

    DeviceDesign readText(const std::string& text) {
        const auto path = scratch_.path() / "design.json";
        std::ofstream(path) << text;
        return readDesign(path);
    }

    std::string complaintOf(const std::string& text) {
        try {
            readText(text);
        } catch (const BadInput& error) {
            return error.what();
        }
        return "nothing was thrown";
    }

    /// What is said of a design in which one value is another one.
    std::string complaintWith(const std::string& place, const Json& value,
                              const SystemDesign& design = stereoDesign()) {
        Json json = toJson(design);
        json[Pointer(place)] = value;
        return complaintOf(json.dump());
    }

    std::string complaintWithout(const std::string& parent, const std::string& key) {
        Json json = toJson(stereoDesign());
        json[Pointer(parent)].erase(key);
        return complaintOf(json.dump());
    }

private:
    const ScratchDirectory scratch_;
};

void expectSame(const ParallelFilter& a, const ParallelFilter& b) {
    EXPECT_EQ(a.sampleRate, b.sampleRate);
    EXPECT_EQ(a.taps, b.taps);
    ASSERT_EQ(a.sections.size(), b.sections.size());
    for (std::size_t i = 0; i < a.sections.size(); ++i) {
        EXPECT_EQ(a.sections[i].a1, b.sections[i].a1);
        EXPECT_EQ(a.sections[i].a2, b.sections[i].a2);
        EXPECT_EQ(a.sections[i].b0, b.sections[i].b0);
        EXPECT_EQ(a.sections[i].b1, b.sections[i].b1);
    }
}

TEST_F(DesignJsonTest, EveryCoefficientComesBackAsItWas) {
    const auto design = stereoDesign();
    const auto back = read(toJson(design));

    ASSERT_EQ(back.speakers.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        const auto& speaker = back.speakers[i];
        EXPECT_EQ(speaker.name, design.speakers[i].name);
        EXPECT_FALSE(speaker.subwoofer);
        EXPECT_DOUBLE_EQ(speaker.alignment.delay, 0.00125);
        EXPECT_EQ(speaker.alignment.gain, -1.5);
        ASSERT_EQ(speaker.filters.size(), 2U);
        expectSame(speaker.filters[0], design.speakers[i].filters[0]);
        expectSame(speaker.filters[1], design.speakers[i].filters[1]);
    }
    EXPECT_TRUE(back.bassCells.empty());
}

TEST_F(DesignJsonTest, BassManagementComesBack) {
    const auto design = bassDesign();
    const auto back = read(toJson(design));

    EXPECT_TRUE(back.speakers[1].subwoofer);
    ASSERT_EQ(back.bassCells.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        const auto& [filter, delay] = std::tie(back.bassCells[i][0], back.bassCells[i][1]);
        EXPECT_EQ(filter.section, 1U);
        ASSERT_EQ(filter.biquads.size(), 2U);
        EXPECT_EQ(filter.biquads[1].a1, design.bass->cells[i][0].biquads[1].a1);
        EXPECT_EQ(filter.biquads[1].b2, design.bass->cells[i][0].biquads[1].b2);
        EXPECT_EQ(delay.output, 1U);
        EXPECT_EQ(delay.delay, 17);
        EXPECT_EQ(delay.gain, -2.5);
    }
}

TEST_F(DesignJsonTest, WhatIsNoJsonIsToldWithItsLine) {
    EXPECT_THAT(complaintOf("{\n \"format\": ]\n}"),
                HasSubstr("design.json: is damaged or no JSON, at line 2"));
    EXPECT_THAT(complaintOf(""), HasSubstr("is damaged or no JSON"));
    EXPECT_THAT(complaintOf("RIFF\xff\xfe"), HasSubstr("is damaged or no JSON"));
    EXPECT_THAT(complaintOf("[1e999]"), HasSubstr("holds a number that is too large"));
    EXPECT_THAT(complaintOf(std::string(500'000, '[')), HasSubstr("is damaged or no JSON"));
}

TEST_F(DesignJsonTest, OtherJsonIsNoDesign) {
    for (const auto* text : {"{}", "[]", "1", R"({"format": "vesk-calibration-report"})"})
        EXPECT_THAT(complaintOf(text), HasSubstr("it is no design of 'vesk-calibrate design'"));
    EXPECT_THAT(complaintWith("/version", 2),
                HasSubstr("version is later than this program, which reads 1"));
}

TEST_F(DesignJsonTest, WhatIsMissingIsNamedWithItsPlace) {
    EXPECT_THAT(complaintWithout("", "speakers"), HasSubstr("it has no \"speakers\""));
    EXPECT_THAT(complaintWithout("/speakers/1", "filters"),
                HasSubstr("speakers[1] has no \"filters\""));
    EXPECT_THAT(complaintWithout("/speakers/0/filters/1/sections/0", "a2"),
                HasSubstr("speakers[0].filters[1].sections[0] has no \"a2\""));
}

TEST_F(DesignJsonTest, WhatIsNoFiniteNumberIsNamedWithItsPlace) {
    const std::string taps = "/speakers/0/filters/1/taps/2";
    for (const Json& value : {Json(nullptr), Json("1"), Json(true), Json::array()})
        EXPECT_THAT(complaintWith(taps, value),
                    HasSubstr("speakers[0].filters[1].taps[2] is no number"));
    EXPECT_THAT(complaintWith(taps, 1e39), HasSubstr("taps[2] is no number from"));
    EXPECT_THAT(complaintWith("/speakers/0/delay_ms", -1),
                HasSubstr("speakers[0].delay_ms is no number from 0 to 1000"));
    EXPECT_THAT(complaintWith("/speakers/0/gain_db", nullptr),
                HasSubstr("speakers[0].gain_db is no number"));
    EXPECT_THAT(complaintWith("/speakers/0/filters/0/sample_rate_hz", 0),
                HasSubstr("sample_rate_hz is no number from 8000 to 768000"));
}

TEST_F(DesignJsonTest, UnstableFiltersAreRefused) {
    EXPECT_THAT(complaintWith("/speakers/1/filters/0/sections/1/a2", 1.0),
                HasSubstr("speakers[1].filters[0].sections[1] is unstable"));
    EXPECT_THAT(complaintWith("/speakers/1/filters/0/sections/1/a1", -1.2),
                HasSubstr("speakers[1].filters[0].sections[1] is unstable"));
    EXPECT_THAT(
        complaintWith("/bass_management/variants/1/cells/0/biquads/0/a2", 1.5, bassDesign()),
        HasSubstr("bass_management.variants[1].cells[0].biquads[0] is unstable"));
}

TEST_F(DesignJsonTest, WhatContradictsItselfIsRefused) {
    EXPECT_THAT(complaintWith("/speakers", Json::array()), HasSubstr("speakers is empty"));
    EXPECT_THAT(complaintWith("/speakers/0/filters", Json::array()),
                HasSubstr("speakers[0].filters is empty"));
    EXPECT_THAT(complaintWith("/speakers/0/filters/0/taps", Json::array()),
                HasSubstr("speakers[0].filters[0].taps is empty"));
    EXPECT_THAT(complaintWith("/speakers/0/filters/1/sample_rate_hz", 48'000),
                HasSubstr("speakers[0].filters[1] is a second one at 48 kHz"));
    EXPECT_THAT(complaintWith("/speakers/0/filters/1/sample_rate_hz", 96'000),
                HasSubstr("speakers do not all have filters at the same sample rates"));
    EXPECT_THAT(complaintWith("/speakers/0/name", 1), HasSubstr("speakers[0].name is no text"));
    EXPECT_THAT(complaintWith("/speakers/0/subwoofer", 1),
                HasSubstr("speakers[0].subwoofer is neither true nor false"));
}

TEST_F(DesignJsonTest, BassManagementThatFitsNothingIsRefused) {
    const std::string bass = "/bass_management/variants";
    EXPECT_THAT(complaintWith(bass + "/1/sample_rate_hz", 96'000, bassDesign()),
                HasSubstr("bass_management.variants has nothing for 44.1 kHz"));
    EXPECT_THAT(complaintWith(bass + "/1/cells/0/section", 5, bassDesign()),
                HasSubstr("cells[0].section is no number from 0 to 4"));
    EXPECT_THAT(complaintWith(bass + "/1/cells/0/input", 0.5, bassDesign()),
                HasSubstr("cells[0].input is no whole number"));
    EXPECT_THAT(complaintWith(bass + "/1/cells/1/input", 1, bassDesign()),
                HasSubstr("do not all have the same cells in the same order"));
}

TEST_F(DesignJsonTest, AFileThatIsMissingOrNoneIsNamed) {
    EXPECT_THROW(readDesign("/no/such/design.json"), BadInput);
    EXPECT_THROW(readDesign("/"), BadInput);
}

}  // namespace
}  // namespace calibrate::design
