#include "calibrate/Errors.h"
#include "calibrate/measurement/CurveFile.h"
#include "calibrate/support/SoundFiles.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace calibrate::measurement;
using testing::HasSubstr;

namespace {

class CurveFileTest : public testing::Test {
protected:
    CurveFile read(const std::string& text) const {
        writeText(path(), text);
        return readCurveFile(path());
    }

    void expectRefused(const std::string& text, const std::string& why) const {
        try {
            read(text);
            ADD_FAILURE() << "was read: " << text;
        } catch (const calibrate::BadInput& error) {
            EXPECT_THAT(error.what(), HasSubstr(why));
        }
    }

    std::filesystem::path path() const { return scratch_.path() / "curve.txt"; }

private:
    ScratchDirectory scratch_;
};

}  // namespace

TEST_F(CurveFileTest, readsEverySeparatorInUse) {
    const auto curve = read("20\t-1\r\n30, 0.5\n40;1\n50   +2 90.0\n").curve;
    ASSERT_EQ(curve.points().size(), 4U);
    EXPECT_EQ(curve.level(20), -1);
    EXPECT_EQ(curve.level(30), 0.5);
    EXPECT_EQ(curve.level(50), 2);
}

TEST_F(CurveFileTest, levelsAreJoinedOnALogarithmicAxis) {
    const auto curve = read("100 0\n400 6\n").curve;
    EXPECT_NEAR(curve.level(200), 3, 1e-12);
    EXPECT_EQ(curve.level(10), 0);
    EXPECT_EQ(curve.level(1'000), 6);
}

TEST_F(CurveFileTest, passesOverHeaders) {
    const auto file = read(
        "\xEF\xBB\xBF\"quoted\"\n* star\n# hash\n; semicolon\nFreq(Hz) SPL(dB)\n\n \t\n20 1\n");
    EXPECT_EQ(file.headers.size(), 5U);
    EXPECT_EQ(file.curve.points().size(), 1U);
}

TEST_F(CurveFileTest, passesOverZeroHertz) {
    EXPECT_EQ(read("0 0\n20 1\n").curve.points().size(), 1U);
}

TEST_F(CurveFileTest, rubbishIsNamedWithItsLine) {
    expectRefused("20 1\nrubbish 2\n", "curve.txt, line 2: \"rubbish\" is no frequency");
    expectRefused("20 1\n30 loud\n", "line 2: \"loud\" is no level");
    expectRefused("20 1\n30\n", "line 2: the level is missing");
    expectRefused("20 1\n20 2\n", "line 2: the frequencies do not ascend");
    expectRefused("20 nan\n", "line 1: \"nan\" is no level");
    expectRefused("-20 1\n", "line 1: -20.0 Hz is no frequency");
    expectRefused("20 1e9\n", "is no level");
    expectRefused("", "holds no line");
    expectRefused("only words\n", "holds no line");
}

TEST_F(CurveFileTest, endlessLineIsRefused) {
    expectRefused(std::string(10'000, '1'), "too long");
}

TEST_F(CurveFileTest, missingFileIsRefused) {
    EXPECT_THROW(readCurveFile(path()), calibrate::BadInput);
    EXPECT_THROW(readCurveFile(path().parent_path()), calibrate::BadInput);
}

TEST_F(CurveFileTest, commasBetweenDigitsMayBeDecimal) {
    for (const auto* const text :
         {"20,5;-1,5\n40;2\n", "20,5\t-1,5\n40\t2\n", "20,5 -1,5\n40 2\n"}) {
        const auto points = read(text).curve.points();
        ASSERT_EQ(points.size(), 2U) << text;
        EXPECT_EQ(points[0].frequency, 20.5) << text;
        EXPECT_EQ(points[0].level, -1.5) << text;
        EXPECT_EQ(points[1].level, 2) << text;
    }
}

TEST_F(CurveFileTest, commasPartColumnsWhereNothingElseDoes) {
    const auto points = read("  20,5  \n40,-1.5\n60, 2\n80.5, 3, 90\n").curve.points();
    ASSERT_EQ(points.size(), 4U);
    EXPECT_EQ(points[0].frequency, 20);
    EXPECT_EQ(points[0].level, 5);
    EXPECT_EQ(points[1].level, -1.5);
    EXPECT_EQ(points[2].level, 2);
    EXPECT_EQ(points[3].frequency, 80.5);
    EXPECT_EQ(points[3].level, 3);
}

TEST_F(CurveFileTest, linesMayEndInCarriageReturns) {
    EXPECT_EQ(read("20 1\r40 2\r60 3\r").curve.points().size(), 3U);
}

TEST_F(CurveFileTest, aFirstLineOfNumbersIsNoHeader) {
    expectRefused("nan 3\n20 1\n", "line 1: \"nan\" is no frequency");
}

TEST_F(CurveFileTest, aPipeIsRefusedAndNotWaitedFor) {
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    EXPECT_THROW(readCurveFile(path()), calibrate::BadInput);
}
