#include "segment/TestSegment.h"
#include "support/Subprocess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <cstring>
#include <optional>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;

class SegmentToolTest : public testing::Test {
protected:
    static constexpr std::size_t kTaps = 1000;

    std::vector<std::string> command(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), VESK_SEGMENT_TOOL);
        arguments.insert(arguments.end(), {"--key", std::to_string(key_)});
        return arguments;
    }
    ProcessResult tool(const std::vector<std::string>& arguments) const {
        return runProcess(command(arguments));
    }

    void publish(std::int64_t stamp) {
        if (!segment_)
            segment_.emplace(key_);
        image_.timeStamp = stamp;
        segment_->publish(image_);
    }
    void publishFilter() {
        image_.bypass = 0;
        image_.speakerCount = 2;
        auto& channel = image_.groups[0][1];
        channel.filterEnabled = 1;
        channel.tapCount = kTaps;
        for (std::size_t tap = 0; tap < kTaps; ++tap)
            channel.taps[tap] = 1.0F / static_cast<float>(3 + tap * tap);
        publish(1);
    }
    void remove() { segment_.reset(); }

    const int key_ = unusedKey();
    DiracConfiguration image_;
    std::optional<TestSegment> segment_;
};

TEST_F(SegmentToolTest, ShowPrintsTheImage) {
    publishFilter();
    const auto result = tool({"show"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output,
                AllOf(ContainsRegex("bypass +off"), ContainsRegex(" 1 +on +1000 +0 +off")));
    EXPECT_THAT(result.errors, IsEmpty());
}

TEST_F(SegmentToolTest, ShowJsonHoldsTheTaps) {
    publishFilter();
    const auto document = json::parse(tool({"show", "--json"}).output);
    const auto& taps = document["groups"][0]["channels"][1]["taps"];
    ASSERT_EQ(taps.size(), kTaps);
    EXPECT_EQ(static_cast<float>(taps[999].get<double>()), image_.groups[0][1].taps[999]);
}

TEST_F(SegmentToolTest, TapsComeBackExactly) {
    publishFilter();
    const auto result = tool({"taps", "1"});
    std::istringstream lines(result.output);
    std::vector<float> taps;
    for (std::string line; std::getline(lines, line);)
        taps.push_back(std::strtof(line.c_str(), nullptr));
    EXPECT_THAT(taps, testing::ElementsAreArray(image_.groups[0][1].taps.data(), kTaps));
}

TEST_F(SegmentToolTest, RawTapsAreTheirBytes) {
    publishFilter();
    const auto result = tool({"taps", "1", "--raw", "--variant", "48000"});
    ASSERT_EQ(result.output.size(), kTaps * sizeof(float));
    EXPECT_EQ(
        std::memcmp(result.output.data(), image_.groups[0][1].taps.data(), result.output.size()),
        0);
}

TEST_F(SegmentToolTest, TapsOfTheOtherVariantAreItsOwn) {
    publishFilter();
    EXPECT_EQ(tool({"taps", "1", "--variant", "44100"}).output, "1\n");
    EXPECT_EQ(tool({"taps", "1", "--group", "1"}).output, "1\n");
}

TEST_F(SegmentToolTest, ResponseRunsFromTenHertzToHalfTheSampleRate) {
    publishFilter();
    const auto document = json::parse(
        tool({"response", "0", "--points", "7", "--variant", "44100", "--json"}).output);
    EXPECT_EQ(document["sampleRate"], 44100);
    ASSERT_EQ(document["points"].size(), 7U);
    EXPECT_EQ(document["points"][0]["frequency"], 10);
    EXPECT_EQ(document["points"][6]["frequency"], 22050);
    EXPECT_EQ(document["points"][3]["magnitude"], 0);
}

TEST_F(SegmentToolTest, ResponseIsATableForPeople) {
    publish(1);
    const auto result = tool({"response", "0", "--points", "2"});
    EXPECT_THAT(result.output, AllOf(HasSubstr("# bypass is on"), ContainsRegex("frequency/Hz"),
                                     ContainsRegex("24000.000 +0.0000 +-?0.000 +0.0000\n")));
}

TEST_F(SegmentToolTest, MissingSegmentEndsWithOne) {
    for (const auto* verb : {"show", "response", "taps"}) {
        std::vector<std::string> arguments{verb};
        if (arguments.front() != "show")
            arguments.emplace_back("0");
        const auto result = tool(arguments);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.output, IsEmpty());
        EXPECT_EQ(result.errors, "vesk-segment: there is no segment with key " +
                                     std::to_string(key_) + ": no device runs here\n");
    }
}

TEST_F(SegmentToolTest, ForeignSegmentEndsWithOne) {
    segment_.emplace(key_);
    const auto result = tool({"show"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errors, HasSubstr("is not the DSP's image"));
}

TEST_F(SegmentToolTest, WatchFollowsChangesRemovalAndReturn) {
    publish(1);
    Subprocess watch(command({"watch", "--json", "--interval", "1", "--count", "4"}));
    const auto next = [&] { return json::parse(watch.readLine().value_or("null")); };
    EXPECT_EQ(next()["timeStamp"], 1);
    publish(2);
    EXPECT_EQ(next()["timeStamp"], 2);
    remove();
    EXPECT_EQ(next()["event"], "absent");
    publish(3);
    const auto last = next();
    EXPECT_EQ(last["event"], "image");
    EXPECT_EQ(last["timeStamp"], 3);
    EXPECT_EQ(watch.wait().exitCode, 0);
}

TEST_F(SegmentToolTest, WatchStartsWithoutASegment) {
    Subprocess watch(command({"watch", "--interval", "1"}));
    EXPECT_THAT(watch.readLine().value_or(""), HasSubstr("there is no segment"));
    publish(1714564800007);
    EXPECT_THAT(watch.readLine().value_or(""), HasSubstr("2024-05-01 12:00:00.007 UTC"));
    watch.signal(SIGTERM);
    EXPECT_EQ(watch.wait().exitCode, -SIGTERM);
}

TEST_F(SegmentToolTest, HelpHasExamples) {
    const auto result = runProcess({VESK_SEGMENT_TOOL, "--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, AllOf(HasSubstr("Examples:"), HasSubstr("Exit codes:")));
}

class SegmentToolUsage : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(SegmentToolUsage, WrongUsageEndsWithTwo) {
    auto words = GetParam();
    words.insert(words.begin(), VESK_SEGMENT_TOOL);
    const auto result = runProcess(words);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_THAT(result.errors, HasSubstr("Usage:"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, SegmentToolUsage,
    testing::Values(std::vector<std::string>{}, std::vector<std::string>{"paint"},
                    std::vector<std::string>{"show", "--colour"},
                    std::vector<std::string>{"response"},
                    std::vector<std::string>{"response", "10"},
                    std::vector<std::string>{"response", "0", "--points", "1"},
                    std::vector<std::string>{"response", "0", "--variant", "96000"},
                    std::vector<std::string>{"taps", "0", "--group", "2"},
                    std::vector<std::string>{"taps", "0", "--group", "1", "--variant", "44100"},
                    std::vector<std::string>{"watch", "--interval", "0"},
                    std::vector<std::string>{"show", "--key", "0"},
                    std::vector<std::string>{"show", "--key", "abc"}));

}  // namespace
