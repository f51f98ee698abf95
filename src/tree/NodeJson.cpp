#include "tree/NodeJson.h"

namespace tree {

namespace {

using nlohmann::ordered_json;
using vesk::control::Node;
using vesk::control::Row;

ordered_json rowJson(const Row& row) {
    return {{"title", row.title()},
            {"type", row.type()},
            {"value", ordered_json::parse(row.value().json())}};
}

const char* kindText(Node::Kind kind) {
    if (kind == Node::ROWS)
        return "rows";
    return kind == Node::ACTION ? "action" : "value";
}

/// The content under its name; nothing for an action.
void addContent(ordered_json& object, const Node& node) {
    if (node.kind() == Node::ROWS)
        object["rows"] = contentJson(node);
    if (node.kind() != Node::VALUE)
        return;
    object["type"] = node.value().type();
    object["value"] = contentJson(node);
}

}  // namespace

ordered_json contentJson(const Node& node) {
    if (node.kind() != Node::ROWS)
        return node.has_value() ? ordered_json::parse(node.value().json()) : ordered_json();
    ordered_json rows = ordered_json::array();
    for (const auto& row : node.rows())
        rows.push_back(rowJson(row));
    return rows;
}

ordered_json nodeJson(const Node& node) {
    ordered_json object{{"path", node.path()}, {"kind", kindText(node.kind())}};
    addContent(object, node);
    object["title"] = node.title();
    object["choices"] = node.choices();
    object["worker"] = node.worker();
    object["persistent"] = node.persistent();
    return object;
}

ordered_json changeJson(const Node& change) {
    ordered_json object{{"path", change.path()}};
    addContent(object, change);
    return object;
}

}  // namespace tree
