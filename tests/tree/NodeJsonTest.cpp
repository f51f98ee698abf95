#include "tree/NodeJson.h"

#include <gtest/gtest.h>

namespace tree {
namespace {

using vesk::control::Node;

Node choiceNode() {
    Node node;
    node.set_path("dirac/activeFilter");
    node.mutable_value()->set_type("i32");
    node.mutable_value()->set_json("2");
    node.set_title("Dirac");
    node.set_choices("dirac/filterSettings");
    node.set_worker("Dirac");
    return node;
}

Node rowsNode() {
    Node node;
    node.set_path("menu");
    node.set_kind(Node::ROWS);
    auto* const row = node.add_rows();
    row->set_title("off");
    row->set_type(101);
    row->mutable_value()->set_json("-1");
    return node;
}

TEST(NodeJson, DescribesAValue) {
    EXPECT_EQ(nodeJson(choiceNode()).dump(),
              R"({"path":"dirac/activeFilter","kind":"value","type":"i32","value":2,)"
              R"("title":"Dirac","choices":"dirac/filterSettings","worker":"Dirac",)"
              R"("persistent":false})");
}

TEST(NodeJson, DescribesRows) {
    EXPECT_EQ(contentJson(rowsNode()).dump(), R"([{"title":"off","type":101,"value":-1}])");
    EXPECT_EQ(nodeJson(rowsNode())["kind"], "rows");
}

TEST(NodeJson, AnActionHasNoContent) {
    Node node;
    node.set_kind(Node::ACTION);
    EXPECT_FALSE(nodeJson(node).contains("value"));
    EXPECT_EQ(nodeJson(node)["kind"], "action");
}

TEST(NodeJson, AMissingValueIsNull) {
    EXPECT_EQ(contentJson(Node()).dump(), "null");
}

TEST(NodeJson, AChangeIsPathAndContent) {
    EXPECT_EQ(changeJson(choiceNode()).dump(),
              R"({"path":"dirac/activeFilter","type":"i32","value":2})");
    EXPECT_EQ(changeJson(rowsNode()).dump(),
              R"({"path":"menu","rows":[{"title":"off","type":101,"value":-1}]})");
}

}  // namespace
}  // namespace tree
