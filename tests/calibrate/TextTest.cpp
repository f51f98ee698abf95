#include "calibrate/Text.h"
#include "calibrate/TextTable.h"

#include <gtest/gtest.h>

#include <sstream>

namespace calibrate {
namespace {

TEST(Printable, KeepsTextsInAnyLanguage) {
    EXPECT_EQ(printable("Stube – 居間 🎵"), "Stube – 居間 🎵");
}

TEST(Printable, ReplacesWhatATerminalWouldObey) {
    EXPECT_EQ(printable("a\x1b[2Jb\r\n\tc\x7f"), "a?[2Jb???c?");
    EXPECT_EQ(printable("\xC2\x9B"), "?");
}

TEST(Printable, ReplacesBytesThatAreNotUtf8) {
    EXPECT_EQ(printable("\xFF"), "?");
    EXPECT_EQ(printable("a\xC3"), "a?");
    EXPECT_EQ(printable("\xC0\xAF"), "??");
    EXPECT_EQ(printable("\xED\xA0\x80"), "???");
    EXPECT_EQ(printable("\xE0\x80\x80"), "???");
    EXPECT_EQ(printable("\xF4\x90\x80\x80"), "????");
}

TEST(IsUtf8, TellsValidTextsFromOthers) {
    EXPECT_TRUE(isUtf8(""));
    EXPECT_TRUE(isUtf8("Küche"));
    EXPECT_FALSE(
        isUtf8("K\xFC"
               "che"));
}

TEST(HasControlCharacter, FindsOneAnywhere) {
    EXPECT_FALSE(hasControlCharacter("Küche 1"));
    EXPECT_TRUE(hasControlCharacter("a\n"));
    EXPECT_TRUE(hasControlCharacter("\xC2\x85"));
}

TEST(Hertz, ReadsAsPeopleWriteIt) {
    EXPECT_EQ(hertz(44100), "44.1 kHz");
    EXPECT_EQ(hertz(48000), "48 kHz");
    EXPECT_EQ(hertz(63), "63 Hz");
    EXPECT_EQ(hertz(20506.5), "20.5065 kHz");
}

TEST(Counted, KnowsThePlural) {
    EXPECT_EQ(counted(0, "tap"), "0 taps");
    EXPECT_EQ(counted(1, "tap"), "1 tap");
    EXPECT_EQ(counted(2, "tap"), "2 taps");
}

TEST(UtcTime, ShowsMillisecondsOfThisAge) {
    EXPECT_EQ(utcTime(1'714'566'600'123), "2024-05-01 12:30:00 UTC");
}

TEST(UtcTime, DoesNotGuessAtOtherNumbers) {
    EXPECT_EQ(utcTime(0), "");
    EXPECT_EQ(utcTime(1'714'566'600), "");
    EXPECT_EQ(utcTime(-1), "");
    EXPECT_EQ(utcTime(std::numeric_limits<long long>::max()), "");
}

TEST(TextTable, AlignsColumnsByCharacters) {
    TextTable table({"A", "Name"});
    table.add({"10", "Küche"});
    table.add({"x", ""});
    std::ostringstream out;
    table.print(out, "  ");

    EXPECT_EQ(out.str(), "  A   Name\n  10  Küche\n  x\n");
}

TEST(Text, WritesLevelsAndTimes) {
    EXPECT_EQ(decibels(-12), "-12.0 dB");
    EXPECT_EQ(decibels(-0.04), "0.0 dB");
    EXPECT_EQ(secondsText(std::chrono::milliseconds(5540)), "5.5 s");
}

}  // namespace
}  // namespace calibrate
