#include "calibrate/measurement/CurveFile.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/TextFile.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

namespace calibrate::measurement {
namespace {

constexpr std::size_t kMostBytes = 16 << 20;
constexpr std::size_t kMostLines = 200'000;
constexpr std::size_t kLongestLine = 4'096;
constexpr double kHighestFrequency = 1e6;
constexpr double kLargestLevel = 300;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == ';';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view trimmed(std::string_view line) {
    while (!line.empty() && isBlank(line.front()))
        line.remove_prefix(1);
    while (!line.empty() && isBlank(line.back()))
        line.remove_suffix(1);
    return line;
}

/// Where other characters part the columns and no number has a point, a comma between two digits is
/// a decimal one: "20,5;-1,5". No blanks around the line.
bool hasDecimalCommas(std::string_view line) {
    if (std::ranges::none_of(line, isBlank) || line.find('.') != std::string_view::npos)
        return false;
    const auto isBetweenDigits = [line](std::size_t at) {
        return at > 0 && at + 1 < line.size() && isDigit(line[at - 1]) && isDigit(line[at + 1]);
    };
    const auto first = line.find(',');
    for (auto comma = first; comma != std::string_view::npos; comma = line.find(',', comma + 1))
        if (!isBetweenDigits(comma))
            return false;
    return first != std::string_view::npos;
}

/// With decimal points.
std::vector<std::string> columnsOf(std::string_view line) {
    const bool decimalCommas = hasDecimalCommas(trimmed(line));
    std::vector<std::string> columns;
    bool isNew = true;
    for (const char c : line) {
        if (isBlank(c) || (c == ',' && !decimalCommas)) {
            isNew = true;
            continue;
        }
        if (isNew)
            columns.emplace_back();
        columns.back() += c == ',' ? '.' : c;
        isNew = false;
    }
    return columns;
}

std::optional<double> number(std::string_view text) {
    if (text.starts_with('+'))
        text.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

bool isComment(std::string_view line) {
    const auto first = line.find_first_not_of(" \t");
    return std::string_view("#;*/\"'").find(line[first]) != std::string_view::npos;
}

/// Collects the lines of one file.
class Reader {
public:
    explicit Reader(const std::filesystem::path& path) : name_(printable(path.string())) {}

    void take(std::string_view line) {
        if (++line_ > kMostLines || line.size() > kLongestLine)
            refuse("is too long for a file of frequencies and levels");
        if (line_ == 1 && line.starts_with("\xEF\xBB\xBF"))
            line.remove_prefix(3);
        const auto columns = columnsOf(line);
        if (columns.empty())
            return;
        if (isComment(line))
            headers_.emplace_back(line);
        else
            takeColumns(line, columns);
    }

    CurveFile result() {
        if (points_.empty())
            throw BadInput(name_ + ": holds no line with a frequency and a level");
        return {FrequencyCurve(std::move(points_)), std::move(headers_)};
    }

private:
    [[noreturn]] void refuse(const std::string& why) const {
        throw BadInput(name_ + ", line " + std::to_string(line_) + ": " + why);
    }

    void takeColumns(std::string_view line, const std::vector<std::string>& columns) {
        const auto frequency = number(columns[0]);
        const bool isText = std::isalpha(static_cast<unsigned char>(line[0])) != 0 &&
                            (columns.size() < 2 || !number(columns[1]));
        if (!frequency && points_.empty() && isText) {
            headers_.emplace_back(line);
            return;
        }
        if (!frequency)
            refuse("\"" + printable(columns[0]) + "\" is no frequency");
        if (columns.size() < 2)
            refuse("the level is missing");
        const auto level = number(columns[1]);
        if (!level)
            refuse("\"" + printable(columns[1]) + "\" is no level");
        add(*frequency, *level);
    }

    void add(double frequency, double level) {
        if (frequency < 0 || frequency > kHighestFrequency)
            refuse(fixed(frequency, 1) + " Hz is no frequency of sound");
        if (std::abs(level) > kLargestLevel)
            refuse(fixed(level, 1) + " dB is no level");
        if (frequency == 0)
            return;
        if (!points_.empty() && frequency <= points_.back().frequency)
            refuse("the frequencies do not ascend");
        points_.push_back({frequency, level});
    }

    std::string name_;
    std::size_t line_{0};
    std::vector<FrequencyCurve::Point> points_;
    std::vector<std::string> headers_;
};

}  // namespace

CurveFile readCurveFile(const std::filesystem::path& path) {
    const std::string text = readTextFile(path, kMostBytes);
    Reader reader(path);
    std::string_view rest = text;
    while (!rest.empty()) {
        const auto end = std::min(rest.find_first_of("\r\n"), rest.size());
        reader.take(rest.substr(0, end));
        rest.remove_prefix(end);
        const bool isPair = rest.starts_with("\r\n");
        rest.remove_prefix(std::min<std::size_t>(isPair ? 2 : 1, rest.size()));
    }
    return reader.result();
}

}  // namespace calibrate::measurement
