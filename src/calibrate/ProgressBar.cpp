#include "calibrate/ProgressBar.h"

#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace calibrate {
namespace {

constexpr std::size_t kBarColumns = 30;

std::string percentText(int percent) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%3d %%", percent);
    return buffer;
}

}  // namespace

ProgressBar::ProgressBar(std::ostream& out, Style style, std::size_t columns)
    : out_(out), style_(style), columns_(columns) {
}

ProgressBar::~ProgressBar() {
    if (!drawn_.empty())
        out_ << std::endl;
}

void ProgressBar::update(double fraction, const std::string& step) {
    if (fraction > fraction_)
        fraction_ = std::min(fraction, 1.0);
    const auto percent = static_cast<int>(std::lround(fraction_ * 100));
    const std::size_t filled = kBarColumns * static_cast<std::size_t>(percent) / 100;
    show(percentText(percent),
         '[' + std::string(filled, '#') + std::string(kBarColumns - filled, '.') + "] ", step);
}

void ProgressBar::elapse(double seconds, const std::string& step) {
    show(fixed(std::floor(seconds), 0) + " s", "", step);
}

void ProgressBar::show(const std::string& measure, const std::string& drawing,
                       const std::string& step) {
    if (style_ == Style::bar)
        draw(drawing + measure, step);
    else if (style_ == Style::lines && step != step_)
        out_ << measure << "  " << step << std::endl;
    step_ = step;
}

void ProgressBar::draw(std::string line, const std::string& step) {
    if (columns(line) + 2 + columns(step) < columns_)
        line += "  " + step;
    if (line != drawn_) {
        out_ << '\r' << line << "\x1b[K" << std::flush;
        drawn_ = line;
    }
}

}  // namespace calibrate
