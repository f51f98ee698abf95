#include "sdk/services/TrString.h"

#include <gtest/gtest.h>

namespace {

std::string contextOf(const char* signature) {
    return trExtractContext(signature).toStdString();
}

std::string textOf(const char* source, const QStringList& values) {
    QList<TrArg> arguments;
    for (const QString& value : values)
        arguments.append(TrArg(value));
    return TrString(QStringLiteral("Context"), source, arguments).text().toStdString();
}

}  // namespace

TEST(TrExtractContextTest, MemberFunctionGivesItsClass) {
    EXPECT_EQ(contextOf("void Dirac::initUIMenuNode()"), "Dirac");
    EXPECT_EQ(contextOf("void Dirac::updateUiMenuNode(const VeskDiracSlotsList&)"), "Dirac");
}

TEST(TrExtractContextTest, NamespaceBelongsToTheClass) {
    EXPECT_EQ(contextOf("void processing::FilterManager::clear()"), "processing::FilterManager");
}

TEST(TrExtractContextTest, FreeFunctionGivesItself) {
    EXPECT_EQ(contextOf("int main()"), "main");
}

TEST(TrExtractContextTest, ConstructorHasNoResultType) {
    EXPECT_EQ(contextOf("Dirac::Dirac(const QVariantHash&)"), "Dirac");
}

TEST(TrExtractContextTest, LambdaGivesTheClassOfItsFunction) {
    EXPECT_EQ(contextOf("Dirac::makeConnections()::<lambda(const CMSetDataRequest&)>"), "Dirac");
}

TEST(TrExtractContextTest, PointerAndReferenceResultsAreNotPartOfTheName) {
    EXPECT_EQ(contextOf("const char* Dirac::name() const"), "Dirac");
    EXPECT_EQ(contextOf("static QString &Dirac::name()"), "Dirac");
}

TEST(TrExtractContextTest, TemplateArgumentsAreSkipped) {
    EXPECT_EQ(contextOf("std::map<int, std::function<void (int)>> Table<int>::rows(a::B)"),
              "Table");
}

TEST(TrStringTest, HoldsContextSourceAndArguments) {
    const TrString text(QStringLiteral("Dirac"), QStringLiteral("Filter: %1"),
                        {TrArg(QStringLiteral("Evening"))});
    EXPECT_EQ(text.context(), QStringLiteral("Dirac"));
    EXPECT_EQ(text.source(), QStringLiteral("Filter: %1"));
    EXPECT_EQ(text.arguments(), QStringList{QStringLiteral("Evening")});
}

TEST(TrStringTest, SurvivesTheWayThroughTheTree) {
    const TrString text(QStringLiteral("Dirac"), QStringLiteral("Filter: %1"),
                        {TrArg(QStringLiteral("Evening"))});
    EXPECT_EQ(TrString(QVariant(text)).text(), QStringLiteral("Filter: Evening"));
}

TEST(TrStringTest, TextWithoutPlacesIsTheSource) {
    EXPECT_EQ(textOf("off", {}), "off");
}

TEST(TrStringTest, ArgumentsStandAtTheirPlaces) {
    EXPECT_EQ(textOf("%2 of %1", {"first", "second"}), "second of first");
}

TEST(TrStringTest, PlaceMayOccurTwice) {
    EXPECT_EQ(textOf("%1, %1", {"x"}), "x, x");
}

TEST(TrStringTest, TwoDigitPlaceIsOnePlace) {
    EXPECT_EQ(textOf("%10", {"a", "b", "c", "d", "e", "f", "g", "h", "i", "tenth"}), "tenth");
}

TEST(TrStringTest, ArgumentThatLooksLikeAPlaceIsKept) {
    EXPECT_EQ(textOf("Filter: %1 (%2)", {"100 %2", "x"}), "Filter: 100 %2 (x)");
}

TEST(TrStringTest, PlaceWithoutArgumentIsKept) {
    EXPECT_EQ(textOf("%1 and %2", {"one"}), "one and %2");
}

TEST(TrStringTest, PercentSignAloneIsKept) {
    EXPECT_EQ(textOf("100% of %1", {"it"}), "100% of it");
}
