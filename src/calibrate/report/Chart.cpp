#include "calibrate/report/Chart.h"

#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace calibrate::report {
namespace {

// The box in which lines are drawn; the page stretches it to the size that the plot gets.
constexpr int kWidth = 2'000;
constexpr int kHeight = 1'000;
const std::string kBox = "0 0 2000 1000";

constexpr double kBeyond = 1;  // parts of an axis that lines may leave it by

// The waterfall's slices: the height of one, and of all baselines.
constexpr double kSliceHeight = 430;
constexpr double kFirstBaseline = 450;
constexpr double kLastBaseline = 1'000;

struct Pixel {
    int x;
    int y;
};

/// Where a point lies in the box; none for what is no number.
std::optional<Pixel> pixelOf(const Point& point, const Axis& x, const Axis& y) {
    const double across = x.position(point.x);
    const double up = y.position(point.y);
    if (!std::isfinite(across) || !std::isfinite(up))
        return std::nullopt;
    return Pixel{static_cast<int>(std::lround(kWidth * across)),
                 static_cast<int>(std::lround(kHeight * (1 - up)))};
}

/// Writes the shortest path: relative steps in whole units.
class Path {
public:
    void to(Pixel pixel) {
        if (open_ && !lines_) {
            data_ += 'l';
            lines_ = true;
            separate_ = false;
        } else if (!open_) {
            data_ += 'M';
            separate_ = false;
        }
        const bool first = !open_;
        number(first ? pixel.x : pixel.x - last_.x);
        number(first ? pixel.y : pixel.y - last_.y);
        open_ = true;
        last_ = pixel;
    }

    /// The next point begins a new line. A line of one point becomes a dot.
    void lift() {
        if (open_ && !lines_)
            data_ += "h0";
        open_ = lines_ = false;
    }

    std::string data() {
        lift();
        return data_;
    }

private:
    void number(int value) {
        if (separate_ && value >= 0)
            data_ += ' ';
        data_ += std::to_string(value);
        separate_ = true;
    }

    std::string data_;
    Pixel last_{0, 0};
    bool open_{false};
    bool lines_{false};
    bool separate_{false};
};

std::string percent(double part) {
    return fixed(100 * part, 2) + "%";
}

std::string barsData(const Series& series, const Axis& x, const Axis& y) {
    std::string data;
    for (const auto& point : series.points)
        if (const auto pixel = pixelOf(point, x, y))
            data += "M" + std::to_string(pixel->x) + " " + std::to_string(kHeight) + "V" +
                    std::to_string(pixel->y);
    return data;
}

Markup svgText(const std::string& style, const std::string& x, const std::string& y, double dx,
               double dy, const std::string& text) {
    return element(
        "text", {{"class", style}, {"x", x}, {"y", y}, {"dx", fixed(dx, 0)}, {"dy", fixed(dy, 0)}},
        text);
}

std::string gridStyle(const Tick& tick) {
    return tick.label.empty() ? "fine" : "grid";
}

Markup verticalTick(const Tick& tick, const Axis& axis) {
    const auto x = percent(axis.position(tick.value));
    return emptyElement("line",
                        {{"class", gridStyle(tick)}, {"x1", x}, {"x2", x}, {"y2", "100%"}}) +
           (tick.label.empty() ? Markup() : svgText("tx", x, "100%", 0, 16, tick.label));
}

Markup horizontalTick(const Tick& tick, const Axis& axis) {
    const auto y = percent(1 - axis.position(tick.value));
    return emptyElement("line",
                        {{"class", gridStyle(tick)}, {"x2", "100%"}, {"y1", y}, {"y2", y}}) +
           (tick.label.empty() ? Markup() : svgText("ty", "0", y, -6, 4, tick.label));
}

Markup grid(const Axis& x, const Axis& y) {
    Markup lines;
    for (const auto& tick : x.ticks)
        lines += verticalTick(tick, x);
    for (const auto& tick : y.ticks)
        lines += horizontalTick(tick, y);
    return lines;
}

/// Lines are clipped at the box's edges, and keep their width when it is stretched.
Markup box(const Markup& content) {
    return element("svg",
                   {{"class", "box"},
                    {"viewBox", kBox},
                    {"width", "100%"},
                    {"height", "100%"},
                    {"preserveAspectRatio", "none"}},
                   content);
}

Markup line(const Series& series, const Chart& chart) {
    const auto data = series.bars ? barsData(series, chart.x, chart.y)
                                  : pathData(series.points, chart.x, chart.y);
    const auto style = "line " + std::string(series.bars ? "bars " : "") + series.style;
    return data.empty() ? Markup() : emptyElement("path", {{"class", style}, {"d", data}});
}

Markup plot(const std::string& id, const std::string& style, const std::string& title,
            const std::string& description, const Markup& content) {
    return element(
        "svg",
        {{"class", "plot " + style}, {"role", "img"}, {"aria-labelledby", id + "t " + id + "d"}},
        element("title", {{"id", id + "t"}}, title) +
            element("desc", {{"id", id + "d"}}, description) + content);
}

Markup sample(const std::string& style) {
    return element("svg", {{"class", "sample"}, {"viewBox", "0 0 28 10"}, {"aria-hidden", "true"}},
                   emptyElement("path", {{"class", "line " + style}, {"d", "M1 5H27"}}));
}

Markup legend(const std::vector<Series>& series) {
    Markup items;
    for (const auto& one : series)
        if (!one.name.empty() && !one.points.empty())
            items += element("li", {}, sample(one.style) + Markup::text(one.name));
    return items.empty() ? items : element("ul", {{"class", "legend"}}, items);
}

Markup caption(const std::string& title) {
    return element("figcaption", {}, title);
}

Markup axisTitles(const Axis& x, const Axis& y) {
    return element("p", {{"class", "y-title"}, {"aria-hidden", "true"}}, y.title) +
           element("p", {{"class", "x-title"}, {"aria-hidden", "true"}}, x.title);
}

Markup note(const std::string& text) {
    return text.empty() ? Markup() : element("p", {{"class", "note"}}, text);
}

std::string sizeStyle(const Chart& chart) {
    return std::string(chart.tall ? "tall" : "") + (chart.thin ? "thin" : "");
}

/// "−20", with a minus as long as a digit.
std::string tickText(double value) {
    return (value < 0 ? "−" : "") + fixed(std::abs(value), 0);
}

bool isEmpty(const Chart& chart) {
    return std::ranges::all_of(chart.series, [&](const Series& series) {
        return std::ranges::none_of(series.points, [&](const Point& point) {
            return pixelOf(point, chart.x, chart.y).has_value();
        });
    });
}

double baseline(double part) {
    return kFirstBaseline + (kLastBaseline - kFirstBaseline) * part;
}

Pixel slicePixel(double across, double level, double base) {
    const double height = kSliceHeight * (1 - level / kWaterfallFloor);
    return {static_cast<int>(std::lround(kWidth * across)),
            static_cast<int>(std::lround(base - height))};
}

/// A slice hides those behind it: it is closed along its baseline and filled.
Markup slicePath(const Waterfall& waterfall, std::size_t index, const Axis& x,
                 const std::string& style) {
    const double part = static_cast<double>(index) /
                        static_cast<double>(std::max<std::size_t>(waterfall.times.size() - 1, 1));
    const double base = baseline(part);
    Path path;
    path.to(slicePixel(0, kWaterfallFloor, base));
    for (std::size_t i = 0; i < waterfall.frequencies.size(); ++i) {
        const double level = waterfall.levels[index][i];
        const double finite = std::isfinite(level) ? level : kWaterfallFloor;
        path.to(slicePixel(x.position(waterfall.frequencies[i]), finite, base));
    }
    path.to(slicePixel(1, kWaterfallFloor, base));
    return emptyElement("path", {{"class", "slice " + style},
                                 {"stroke-opacity", fixed(1 - 0.55 * part, 2)},
                                 {"d", path.data()}});
}

Markup waterfallGrid(const Waterfall& waterfall, const Axis& x) {
    Markup lines;
    for (const auto& tick : x.ticks)
        lines += verticalTick(tick, x);
    for (double time = 0; time <= waterfall.times.back() + 1; time += 100) {
        const auto y = percent(baseline(time / waterfall.times.back()) / kHeight);
        lines += svgText("tr", "100%", y, 5, 4, fixed(time, 0));
    }
    for (double level = kWaterfallFloor; level <= 0; level += 20) {
        const double base = kFirstBaseline - kSliceHeight * (1 - level / kWaterfallFloor);
        lines += svgText("ty", "0", percent(base / kHeight), -6, 4, tickText(level));
    }
    return lines;
}

}  // namespace

double Axis::position(double value) const {
    const double part =
        logarithmic ? std::log(value / from) / std::log(to / from) : (value - from) / (to - from);
    return std::isnan(part) ? part : std::clamp(part, -kBeyond, 1 + kBeyond);
}

Axis audioAxis() {
    Axis axis{20, 20'000, true, {}, "Frequency (Hz)"};
    for (const double decade : {10.0, 100.0, 1000.0, 10'000.0})
        for (int digit = 1; digit < 10; ++digit) {
            const double value = decade * digit;
            if (value < axis.from || value > axis.to)
                continue;
            const bool labelled = digit == 1 || digit == 2 || digit == 5;
            const auto text = value < 1000 ? fixed(value, 0) : fixed(value / 1000, 0) + "k";
            axis.ticks.push_back({value, labelled ? text : ""});
        }
    return axis;
}

Axis bassAxis() {
    return {kWaterfallLowest,
            kWaterfallHighest,
            true,
            {{20, "20"},
             {30, "30"},
             {40, ""},
             {50, "50"},
             {60, ""},
             {70, "70"},
             {80, ""},
             {90, ""},
             {100, "100"},
             {150, "150"},
             {200, "200"},
             {300, "300"}},
            "Frequency (Hz)"};
}

Axis linearAxis(double from, double to, double step, const std::string& title) {
    Axis axis{from, to, false, {}, title};
    for (int i = 0; from + i * step <= to + step / 1000; ++i)
        axis.ticks.push_back({from + i * step, tickText(from + i * step)});
    return axis;
}

Axis levelAxis(double from, double to, double step, const std::string& title) {
    Axis axis = linearAxis(from, to, step, title);
    for (auto& tick : axis.ticks)
        if (tick.value > 0 && from < 0)
            tick.label.insert(0, "+");
    return axis;
}

std::string pathData(const Line& line, const Axis& x, const Axis& y) {
    Path path;
    for (const auto& point : line) {
        if (const auto pixel = pixelOf(point, x, y))
            path.to(*pixel);
        else
            path.lift();
    }
    return path.data();
}

Markup figure(const Chart& chart, const std::string& id) {
    if (isEmpty(chart)) {
        return element(
            "figure", {},
            caption(chart.title) + element("p", {{"class", "nothing"}}, "Nothing to show."));
    }
    Markup lines;
    for (const auto& series : chart.series)
        lines += line(series, chart);
    return element("figure", {},
                   caption(chart.title) + legend(chart.series) + axisTitles(chart.x, chart.y) +
                       plot(id, sizeStyle(chart), chart.title, chart.description,
                            grid(chart.x, chart.y) + box(lines)) +
                       note(chart.note));
}

Markup waterfallFigure(const Waterfall& waterfall, const std::string& title,
                       const std::string& style, const std::string& id) {
    const Axis x = bassAxis();
    Markup slices;
    for (std::size_t i = 0; i < waterfall.levels.size(); ++i)
        slices += slicePath(waterfall, i, x, style);
    const std::string description =
        "Spectra from 20 to 300 Hz, one every 20 ms for 300 ms after the direct sound; "
        "ridges that run to the front are resonances of the room.";
    const Axis titles{0, 1, false, {}, "Level (dB) at the back, time (ms) at the right"};
    return element("figure", {},
                   caption(title) + axisTitles(x, titles) +
                       plot(id, "tall waterfall", title, description,
                            waterfallGrid(waterfall, x) + box(slices)));
}

}  // namespace calibrate::report
