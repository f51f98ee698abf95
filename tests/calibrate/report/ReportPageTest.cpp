#include "calibrate/report/ReportPage.h"
#include "calibrate/report/TestCalibration.h"
#include "calibrate/report/WellFormed.h"

#include <gmock/gmock.h>

#include <limits>
#include <regex>

namespace calibrate::report {
namespace {

using measurement::Verdict;

std::string pageOf(const Calibration& calibration) {
    std::vector<SpeakerFigures> all;
    for (std::size_t i = 0; i < calibration.speakers.size(); ++i)
        all.push_back(figures(calibration, i));
    return page(calibration, all);
}

/// Instead of a matcher, which would print whole pages.
bool has(const std::string& page, const std::string& text) {
    return page.find(text) != std::string::npos;
}

/// A page that every browser shows whole: well-formed, and numbers in all drawings.
void expectSound(const std::string& page) {
    EXPECT_EQ(whatIsMalformed(page), "");
    std::string::size_type position = 0;
    while ((position = page.find(" d=\"", position)) != std::string::npos) {
        position += 4;
        const auto end = page.find('"', position);
        EXPECT_EQ(page.substr(position, end - position).find_first_not_of("MlVhH0123456789- "),
                  std::string::npos);
        EXPECT_EQ(page[position], 'M');
    }
    for (const auto* word : {"\"nan", "\"inf", "-nan", "nan%", "inf%", ">nan", ">inf", " nan",
                             " inf", "−inf", "−nan", "+nan"})
        EXPECT_FALSE(has(page, word)) << word;
}

TEST(ReportPageTest, AWholeCalibrationMakesASoundPage) {
    expectSound(pageOf(stereoCalibration()));
}

TEST(ReportPageTest, WordsAtTheTopTellTheResult) {
    const auto page = pageOf(stereoCalibration());

    EXPECT_TRUE(has(page, "2 loudspeakers calibrated."));
    EXPECT_TRUE(has(page, "All checks passed"));
    EXPECT_TRUE(has(page, "deviation from target, measured"));
}

TEST(ReportPageTest, EachSpeakerHasAllItsPlots) {
    const auto page = pageOf(stereoCalibration());

    for (const auto* title :
         {"Frequency response", "Correction filter", "Impulse response", "Energy over time",
          "Decay of the bass, before", "Decay of the bass, measured after", "Signal to noise",
          "Decay time of the bass"}) {
        const std::regex caption(std::string("<figcaption>") + title + "</figcaption>");
        const std::sregex_iterator found(page.begin(), page.end(), caption);
        EXPECT_EQ(std::distance(found, std::sregex_iterator()), 2) << title;
    }
}

TEST(ReportPageTest, BandsWhoseDecayIsNotMeasurableAreNamed) {
    EXPECT_TRUE(std::regex_search(pageOf(stereoCalibration()),
                                  std::regex("Not measurable before: [0-9., ]*250 Hz\\.")));
}

TEST(ReportPageTest, SeveralPositionsAreShown) {
    Calibration calibration = measuredCalibration({"A"});
    EXPECT_FALSE(has(pageOf(calibration), "All positions"));
    calibration.speakers[0] = measuredSpeaker("A", 0, 3);

    const auto page = pageOf(calibration);

    expectSound(page);
    EXPECT_TRUE(has(page, "All positions"));
    EXPECT_TRUE(has(page, "Measured at 3 positions"));
}

TEST(ReportPageTest, APredictionIsNotCalledAMeasurement) {
    Calibration calibration = stereoCalibration();
    for (auto& speaker : calibration.speakers)
        speaker.verification.reset();

    const auto page = pageOf(calibration);

    expectSound(page);
    EXPECT_TRUE(has(page, "deviation from target, predicted"));
    EXPECT_FALSE(has(page, "measured after"));
}

TEST(ReportPageTest, ACalibrationThatEndedEarlyHasAPageToo) {
    Calibration measuredOnly = measuredCalibration({"A"});
    expectSound(pageOf(measuredOnly));
    EXPECT_TRUE(has(pageOf(measuredOnly), "No correction was made."));

    measuredOnly.speakers[0].positions.clear();
    expectSound(pageOf(measuredOnly));
    EXPECT_TRUE(has(pageOf(measuredOnly), "not measured"));

    expectSound(pageOf({}));
}

TEST(ReportPageTest, NoNameBecomesMarkup) {
    const std::string hostile = "<script>alert(1)</script>\"'&<!--]]>";
    Calibration calibration = wholeCalibration({hostile});
    calibration.device = {hostile, hostile, hostile, hostile, hostile};
    calibration.slotName = calibration.target = hostile;
    calibration.microphone = {hostile, hostile};
    calibration.versions = {{hostile, hostile}};
    calibration.warnings = {hostile};
    calibration.speakers[0].kind = hostile;
    calibration.speakers[0].verification->text = hostile;
    calibration.speakers[0].verification->sweep.checks.checks[0].text = hostile;
    calibration.design->warnings = {hostile};

    const auto page = pageOf(calibration);

    expectSound(page);
    EXPECT_FALSE(has(page, "<script"));
    EXPECT_FALSE(has(page, "<!--"));
    EXPECT_TRUE(has(page, "&lt;script&gt;alert(1)&lt;/script&gt;&quot;&#39;&amp;"));
}

TEST(ReportPageTest, ControlAndDirectionCharactersDoNotReachThePage) {
    Calibration calibration = measuredCalibration({std::string("a\0b\x1b[31m\u202E", 11)});

    const auto page = pageOf(calibration);

    expectSound(page);
    EXPECT_EQ(page.find('\0'), std::string::npos);
    EXPECT_EQ(page.find('\x1b'), std::string::npos);
    EXPECT_FALSE(has(page, "\u202E"));
}

TEST(ReportPageTest, BrokenResponsesBreakNoDrawing) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<measurement::ImpulseResponse> responses{
        {},
        {48'000, {}, 0},
        {48'000, {1}, 0},
        {48'000, {nan, 1}, 0},
        {48'000, {1, -std::numeric_limits<double>::infinity()}, 0},
        {nan, {1, 2}, 0},
        {48'000, {1, 2}, nan},
        {48'000, std::vector<double>(4'800), 0},
        {48'000, {1e300, -1e300}, 0},
        {48'000, {1e-300, 0}, 1e9},
    };
    for (std::size_t i = 0; i < responses.size(); ++i) {
        SCOPED_TRACE(i);
        Calibration calibration = stereoCalibration();
        calibration.speakers[0].positions[0].response = responses[i];
        calibration.speakers[1].verification->sweep.response = responses[i];
        expectSound(pageOf(calibration));
    }
}

TEST(ReportPageTest, FiguresThatAreNoNumbersBreakNothing) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    Calibration calibration = stereoCalibration();
    auto& position = calibration.speakers[0].positions[0];
    position.level = nan;
    position.noise = -std::numeric_limits<double>::infinity();
    position.signalToNoise = {{1000, nan}, {nan, 20}, {63, -500}};
    position.distortion = {{2, nan}};
    calibration.design->speakers[0].alignment = {nan, nan};
    calibration.design->speakers[0].arrival.time = nan;
    calibration.design->speakers[0].filters[0].taps[0] = std::numeric_limits<float>::quiet_NaN();

    expectSound(pageOf(calibration));
}

TEST(ReportPageTest, NothingComesFromElsewhere) {
    const auto page = pageOf(stereoCalibration());

    for (const auto* word : {"http:", "https:", "src=", "url(", "@import", "<link", "<script",
                             "<img", "<iframe", "onload=", "onclick="})
        EXPECT_FALSE(has(page, word)) << word;
    EXPECT_TRUE(has(page, "default-src &#39;none&#39;"));
}

TEST(ReportPageTest, TenSpeakersFitIntoAMegabyte) {
    const Calibration& stereo = stereoCalibration();
    Calibration calibration = stereo;
    for (int i = 0; i < 4; ++i)
        for (std::size_t k = 0; k < 2; ++k) {
            calibration.speakers.push_back(stereo.speakers[k]);
            calibration.design->speakers.push_back(stereo.design->speakers[k]);
        }
    for (auto& speaker : calibration.speakers) {
        speaker.name = std::string(100'000, '&');
        while (speaker.positions.size() < 9)
            speaker.positions.push_back(speaker.positions.front());
    }

    const auto page = pageOf(calibration);

    expectSound(page);
    EXPECT_LT(page.size(), 1'000'000U);
}

TEST(ReportPageTest, TheSameCalibrationGivesTheSamePage) {
    EXPECT_EQ(pageOf(stereoCalibration()), pageOf(stereoCalibration()));
}

TEST(ReportPageTest, ChecksThatFoundSomethingAreUnfolded) {
    Calibration calibration = measuredCalibration({"A"});
    EXPECT_FALSE(has(pageOf(calibration), "<details open"));
    calibration.speakers[0].positions[0].checks.checks[1].verdict = Verdict::poor;

    const auto page = pageOf(calibration);

    EXPECT_TRUE(has(page, "<details open"));
    EXPECT_TRUE(has(page, "Usable, with remarks"));
}

TEST(ReportPageTest, DistancesCountFromTheNearestUnlessTheLatencyIsKnown) {
    Calibration calibration = stereoCalibration();
    EXPECT_TRUE(has(pageOf(calibration), "<td>+0.00</td>"));
    calibration.latency = 0.004;

    EXPECT_TRUE(has(pageOf(calibration), "<td>2.0"));
}

}  // namespace
}  // namespace calibrate::report
