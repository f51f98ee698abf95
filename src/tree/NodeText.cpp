#include "tree/NodeText.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace tree {

namespace {

using vesk::control::Node;
using vesk::control::Value;

constexpr std::size_t kShownCharacters = 60;

/// Cut between two characters of UTF-8.
std::string shortened(const std::string& text) {
    if (text.size() <= kShownCharacters)
        return text;
    std::size_t end = kShownCharacters;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
        --end;
    return text.substr(0, end) + "...";
}

std::string valueText(const Value& value) {
    return value.type() == "string" ? nlohmann::json::parse(value.json()).get<std::string>()
                                    : value.json();
}

std::string typeText(const Node& node) {
    if (node.kind() == Node::ACTION)
        return "action";
    if (node.kind() == Node::ROWS)
        return "rows";
    return node.has_value() ? node.value().type() : "-";
}

std::string contentText(const Node& node) {
    if (node.kind() == Node::ROWS)
        return std::to_string(node.rows_size()) + " rows";
    return node.has_value() ? shortened(node.value().json()) : "";
}

std::string servedBy(const Node& node) {
    return (node.worker().empty() ? "device" : node.worker()) + (node.persistent() ? " *" : "");
}

class Table {
public:
    void add(std::array<std::string, 4> row) {
        for (std::size_t column = 0; column < row.size(); ++column)
            widths_[column] = std::max(widths_[column], row[column].size());
        rows_.push_back(std::move(row));
    }

    void print(std::ostream& out) const {
        for (const auto& row : rows_) {
            for (std::size_t column = 0; column + 1 < row.size(); ++column)
                out << std::left << std::setw(static_cast<int>(widths_[column]) + 2) << row[column];
            out << row.back() << '\n';
        }
    }

private:
    std::vector<std::array<std::string, 4>> rows_;
    std::array<std::size_t, 4> widths_{};
};

}  // namespace

void printNodes(std::ostream& out, const std::vector<Node>& nodes) {
    Table table;
    table.add({"PATH", "TYPE", "SERVED BY", "VALUE"});
    for (const auto& node : nodes)
        table.add({node.path(), typeText(node), servedBy(node), contentText(node)});
    table.print(out);
}

void printContent(std::ostream& out, const Node& node) {
    for (const auto& row : node.rows())
        out << valueText(row.value()) << '\t' << row.title() << '\n';
    if (node.has_value())
        out << valueText(node.value()) << '\n';
}

}  // namespace tree
