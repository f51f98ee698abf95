#include "host/NodeMessage.h"

#include "host/ValueJson.h"
#include "sdk/records/VeskRoles.h"

namespace host {

namespace {

using vesk::control::Node;
using vesk::control::Row;
using vesk::control::Value;

Node::Kind kindMessage(platform::NodeKind kind) {
    switch (kind) {
        case platform::NodeKind::Value:
            return Node::VALUE;
        case platform::NodeKind::Rows:
            return Node::ROWS;
        case platform::NodeKind::Action:
            return Node::ACTION;
    }
    return Node::VALUE;
}

Row rowMessage(const VeskRoles& row) {
    Row message;
    message.set_title(row.title().text().toStdString());
    message.set_type(row.type());
    *message.mutable_value() = valueMessage(row.value());
    return message;
}

/// The content of a node or of a change.
template <typename Content>
Node contentMessage(const Content& content, ValueDetail detail) {
    Node node;
    node.set_path(content.path.toString().toStdString());
    node.set_kind(kindMessage(content.kind));
    if (content.kind == platform::NodeKind::Value && !content.value.isEmpty())
        *node.mutable_value() = valueMessage(content.value, detail);
    for (const QVariant& row : content.rows)
        *node.add_rows() = rowMessage(VeskRoles(row));
    return node;
}

}  // namespace

Value valueMessage(const VeskValue& value, ValueDetail detail) {
    const auto document = valueToJson(value);
    Value message;
    message.set_type(valueType(value));
    message.set_json(detail == ValueDetail::Whole ? document.dump()
                                                  : withoutLongLists(document).dump());
    return message;
}

Node nodeMessage(const platform::NodeInfo& info, ValueDetail detail) {
    Node node = contentMessage(info, detail);
    node.set_title(info.title.toStdString());
    node.set_choices(info.choices.toString().toStdString());
    node.set_worker(info.worker.toStdString());
    node.set_persistent(info.persistent);
    return node;
}

Node changeMessage(const platform::Change& change) {
    return contentMessage(change, ValueDetail::Whole);
}

}  // namespace host
