#include "calibrate/measurement/CurveFile.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <fstream>
#include <optional>
#include <string_view>

namespace calibrate::measurement {
namespace {

constexpr std::size_t kMostLines = 200'000;
constexpr std::size_t kLongestLine = 4'096;
constexpr double kHighestFrequency = 1e6;
constexpr double kLargestLevel = 300;

bool isSeparator(char c) {
    return c == ' ' || c == '\t' || c == ',' || c == ';' || c == '\r';
}

std::vector<std::string_view> columnsOf(std::string_view line) {
    std::vector<std::string_view> columns;
    std::size_t at = 0;
    while (at < line.size()) {
        const std::size_t start = at;
        while (at < line.size() && !isSeparator(line[at]))
            ++at;
        if (at > start)
            columns.push_back(line.substr(start, at - start));
        while (at < line.size() && isSeparator(line[at]))
            ++at;
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

    void takeColumns(std::string_view line, const std::vector<std::string_view>& columns) {
        const auto frequency = number(columns[0]);
        if (!frequency && points_.empty() && std::isalpha(static_cast<unsigned char>(line[0]))) {
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
    std::error_code error;
    std::ifstream file(path);
    if (!file || !std::filesystem::is_regular_file(path, error))
        throw BadInput(printable(path.string()) + ": cannot be read");
    Reader reader(path);
    for (std::string line; std::getline(file, line);)
        reader.take(line);
    return reader.result();
}

}  // namespace calibrate::measurement
