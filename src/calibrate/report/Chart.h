#pragma once

#include "calibrate/report/Curves.h"
#include "calibrate/report/Markup.h"

#include <string>
#include <vector>

namespace calibrate::report {

struct Tick {
    double value;
    std::string label;  ///< empty: a fine grid line
};

struct Axis {
    double from;
    double to;  ///< above from
    bool logarithmic{false};
    std::vector<Tick> ticks;
    std::string title;  ///< with the unit: "Frequency (Hz)"

    /// Part of the axis from 0 to 1, clamped to a little beyond; NaN for what is no number.
    double position(double value) const;
};

/// 20 Hz to 20 kHz.
Axis audioAxis();

/// 20 to 300 Hz.
Axis bassAxis();

/// Levels with a line every `step` dB, with a sign.
Axis levelAxis(double from, double to, double step, const std::string& title);

/// Evenly divided, with a line and a label every `step`.
Axis linearAxis(double from, double to, double step, const std::string& title);

struct Series {
    std::string name;   ///< in the legend; empty: not there
    std::string style;  ///< the style sheet's class: before, after, predicted, target, …
    Line points;
    bool bars{false};  ///< a bar from the lower edge to each point
};

struct Chart {
    std::string title;
    std::string description;  ///< in words, for those who do not see it
    Axis x;
    Axis y;
    std::vector<Series> series;  ///< the last one is drawn on top
    std::string note;            ///< below it; may be empty
    bool tall{false};
    bool thin{false};  ///< many lines close together
};

/// A <figure> that takes the width that it gets: lines stretch, texts and strokes do not. `id` is
/// unique in the page.
Markup figure(const Chart& chart, const std::string& id);

/// How the bass dies away: one line a slice, the latest in front.
Markup waterfallFigure(const Waterfall& waterfall, const std::string& title,
                       const std::string& style, const std::string& id);

/// The "d" attribute of a line in a box of 2000 by 1000, empty when there is no point to draw.
std::string pathData(const Line& line, const Axis& x, const Axis& y);

}  // namespace calibrate::report
