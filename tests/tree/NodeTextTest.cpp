#include "tree/NodeText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace tree {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using vesk::control::Node;

Node valueNode(const std::string& path, const std::string& type, const std::string& json) {
    Node node;
    node.set_path(path);
    node.mutable_value()->set_type(type);
    node.mutable_value()->set_json(json);
    return node;
}

std::string content(const Node& node) {
    std::ostringstream out;
    printContent(out, node);
    return out.str();
}

std::string table(const std::vector<Node>& nodes) {
    std::ostringstream out;
    printNodes(out, nodes);
    return out.str();
}

TEST(PrintContent, AStringIsPlain) {
    EXPECT_EQ(content(valueNode("a", "string", R"("Living \"room\"")")), "Living \"room\"\n");
}

TEST(PrintContent, AnythingElseIsJson) {
    EXPECT_EQ(content(valueNode("a", "i32", "-5")), "-5\n");
    EXPECT_EQ(content(valueNode("a", "record", R"({"a":1})")), "{\"a\":1}\n");
}

TEST(PrintContent, RowsAreValueAndTitle) {
    Node node;
    node.set_kind(Node::ROWS);
    auto* const row = node.add_rows();
    row->set_title("Filter: Sofa");
    row->mutable_value()->set_type("i32");
    row->mutable_value()->set_json("3");
    EXPECT_EQ(content(node), "3\tFilter: Sofa\n");
}

TEST(PrintNodes, ColumnsAreAligned) {
    auto persistent = valueNode("long/path", "double", "-3.5");
    persistent.set_persistent(true);
    auto served = valueNode("a", "i32", "1");
    served.set_worker("Dirac");
    EXPECT_EQ(table({served, persistent}),
              "PATH       TYPE    SERVED BY  VALUE\n"
              "a          i32     Dirac      1\n"
              "long/path  double  device *   -3.5\n");
}

TEST(PrintNodes, ALongValueIsCutBetweenCharacters) {
    const auto text = table({valueNode("a", "string", std::string(59, 'x') + "äöü")});
    EXPECT_THAT(text, HasSubstr(std::string(59, 'x') + "...\n"));
}

TEST(PrintNodes, NodesWithoutValueSayWhatTheyAre) {
    Node action;
    action.set_path("act");
    action.set_kind(Node::ACTION);
    Node rows;
    rows.set_path("menu");
    rows.set_kind(Node::ROWS);
    rows.add_rows();
    Node empty;
    empty.set_path("none");
    const auto text = table({action, rows, empty});
    EXPECT_THAT(text, ContainsRegex("act +action +device +\n"));
    EXPECT_THAT(text, ContainsRegex("menu +rows +device +1 rows\n"));
    EXPECT_THAT(text, ContainsRegex("none +- +device +\n"));
}

}  // namespace
}  // namespace tree
