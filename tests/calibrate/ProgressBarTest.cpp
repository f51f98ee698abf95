#include "calibrate/ProgressBar.h"

#include <gmock/gmock.h>

#include <cmath>
#include <sstream>

namespace calibrate {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST(ProgressBar, DrawsItselfOnOneLineOfATerminal) {
    std::ostringstream out;
    {
        ProgressBar bar(out, ProgressBar::Style::bar, 80);
        bar.update(0.5, "sending");
        EXPECT_EQ(out.str(), "\r[###############...............]  50 %  sending\x1b[K");
        bar.update(0.5, "sending");
        EXPECT_THAT(out.str(), Not(EndsWith("\n")));
    }
    EXPECT_THAT(out.str(), EndsWith("sending\x1b[K\n"));
}

TEST(ProgressBar, LeavesTheStepOutOfANarrowTerminal) {
    std::ostringstream out;
    ProgressBar(out, ProgressBar::Style::bar, 45).update(1, "a long step");

    EXPECT_THAT(out.str(), Not(HasSubstr("step")));
    EXPECT_THAT(out.str(), HasSubstr("100 %"));
}

TEST(ProgressBar, PrintsALineForEachStepElsewhere) {
    std::ostringstream out;
    {
        ProgressBar bar(out, ProgressBar::Style::lines, 80);
        bar.update(0, "first");
        bar.update(0.3, "first");
        bar.update(0.8, "second");
    }
    EXPECT_EQ(out.str(), "  0 %  first\n 80 %  second\n");
}

TEST(ProgressBar, SaysNothingWhenNotWanted) {
    std::ostringstream out;
    ProgressBar(out, ProgressBar::Style::none, 80).update(1, "all");

    EXPECT_EQ(out.str(), "");
}

TEST(ProgressBar, ShowsTheTimeWhereTheEndIsNotKnown) {
    std::ostringstream out;
    {
        ProgressBar bar(out, ProgressBar::Style::bar, 80);
        bar.elapse(2.9, "recording");
        EXPECT_EQ(out.str(), "\r2 s  recording\x1b[K");
    }
    out.str("");
    ProgressBar lines(out, ProgressBar::Style::lines, 80);
    lines.elapse(0, "recording");
    lines.elapse(5, "recording");
    EXPECT_EQ(out.str(), "0 s  recording\n");
}

TEST(ProgressBar, NeitherGoesBackNorBeyondItsEnd) {
    std::ostringstream out;
    ProgressBar bar(out, ProgressBar::Style::lines, 80);
    bar.update(0.5, "a");
    bar.update(0.2, "b");
    bar.update(std::nan(""), "c");
    bar.update(-INFINITY, "d");
    bar.update(1e9, "e");

    EXPECT_EQ(out.str(), " 50 %  a\n 50 %  b\n 50 %  c\n 50 %  d\n100 %  e\n");
}

}  // namespace
}  // namespace calibrate
