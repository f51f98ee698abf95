#include "tree/Verbs.h"

#include "tree/DeviceSocket.h"
#include "tree/Errors.h"
#include "tree/NodeJson.h"
#include "tree/NodeText.h"
#include "tree/TreeClient.h"

#include <ostream>

namespace tree {

namespace {

using nlohmann::ordered_json;
using vesk::control::Node;

constexpr int kJsonIndent = 2;

void list(TreeClient& client, const Command& command, std::ostream& out) {
    const auto nodes = client.list(command.path);
    if (!command.json)
        return printNodes(out, nodes);
    ordered_json document = ordered_json::array();
    for (const auto& node : nodes)
        document.push_back(nodeJson(node));
    out << document.dump(kJsonIndent) << '\n';
}

void requireContent(const Node& node) {
    if (node.kind() == Node::ACTION)
        throw RefusedError("\"" + node.path() + "\" is an action: run it with invoke");
    if (node.kind() == Node::VALUE && !node.has_value())
        throw RefusedError("\"" + node.path() + "\" has no value yet");
}

void get(TreeClient& client, const Command& command, std::ostream& out) {
    const Node node = client.get(command.path);
    requireContent(node);
    if (command.json)
        out << contentJson(node).dump() << '\n';
    else
        printContent(out, node);
}

void watch(TreeClient& client, const Command& command, std::ostream& out) {
    std::size_t printed = 0;
    client.watch(command.prefixes, command.present, [&](const Node& change) {
        out << changeJson(change).dump() << std::endl;
        return out && ++printed != command.changes;
    });
}

}  // namespace

void run(const Command& command, std::ostream& out) {
    TreeClient client(deviceSocket(command));
    switch (command.verb) {
        case Command::Verb::List:
            return list(client, command, out);
        case Command::Verb::Get:
            return get(client, command, out);
        case Command::Verb::Set:
            return client.set(command.path, command.value, command.type);
        case Command::Verb::Watch:
            return watch(client, command, out);
        case Command::Verb::Invoke:
            out << client.invoke(command.path, command.value) << '\n';
            return;
    }
}

}  // namespace tree
