#include "calibrate/TextTable.h"

#include "calibrate/Text.h"

#include <algorithm>
#include <utility>

namespace calibrate {

TextTable::TextTable(std::vector<std::string> heading) {
    rows_.push_back(std::move(heading));
}

void TextTable::add(std::vector<std::string> row) {
    row.resize(rows_.front().size());
    rows_.push_back(std::move(row));
}

std::vector<std::size_t> TextTable::columnWidths() const {
    std::vector<std::size_t> widths(rows_.front().size(), 0);
    for (const auto& row : rows_)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], columns(row[i]));
    return widths;
}

void TextTable::print(std::ostream& out, const std::string& indent) const {
    const auto widths = columnWidths();
    for (const auto& row : rows_) {
        std::string line = indent;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] - columns(row[i]) + 2, ' ');
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

}  // namespace calibrate
