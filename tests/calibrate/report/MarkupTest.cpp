#include "calibrate/report/Markup.h"

#include <gmock/gmock.h>

namespace calibrate::report {
namespace {

TEST(MarkupTest, TextIsEscaped) {
    EXPECT_EQ(Markup::text(R"(<b>"A" & 'B'</b>)").string(),
              "&lt;b&gt;&quot;A&quot; &amp; &#39;B&#39;&lt;/b&gt;");
}

TEST(MarkupTest, ControlCharactersAndBrokenUtf8AreReplaced) {
    EXPECT_EQ(Markup::text(std::string("a\0b\x1b\xff", 5)).string(), "a?b??");
}

TEST(MarkupTest, OtherLettersStay) {
    EXPECT_EQ(Markup::text("Höhe 音").string(), "Höhe 音");
}

TEST(MarkupTest, AttributesCannotBeLeft) {
    EXPECT_EQ(emptyElement("path", {{"class", "\" onload=\"x"}}).string(),
              "<path class=\"&quot; onload=&quot;x\"/>");
}

TEST(MarkupTest, ElementsEncloseTheirContent) {
    const auto inner = element("b", {}, "1 < 2");
    EXPECT_EQ(element("p", {{"id", "x"}}, inner).string(), "<p id=\"x\"><b>1 &lt; 2</b></p>");
}

}  // namespace
}  // namespace calibrate::report
