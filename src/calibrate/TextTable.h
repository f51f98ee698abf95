#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace calibrate {

/// Rows of texts, printed in aligned columns. The first row is the heading.
class TextTable {
public:
    explicit TextTable(std::vector<std::string> heading);

    /// Takes as many texts as the heading has.
    void add(std::vector<std::string> row);

    /// Prints each row behind `indent`, columns two blanks apart, without blanks at a line's end.
    void print(std::ostream& out, const std::string& indent) const;

private:
    std::vector<std::size_t> columnWidths() const;

    std::vector<std::vector<std::string>> rows_;
};

}  // namespace calibrate
