#pragma once

#include <cstddef>
#include <ostream>
#include <string>

namespace calibrate {

/// Shows how far a long action is.
class ProgressBar {
public:
    enum class Style {
        bar,    ///< one line of a terminal, drawn again and again
        lines,  ///< a line for each step, for logs and pipes
        none
    };

    /// `columns` is the width of the terminal.
    ProgressBar(std::ostream& out, Style style, std::size_t columns);
    /// Ends the terminal's line, so that what follows starts on its own.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// `fraction` is 0 to 1; a value outside, or no number, is brought there. It never goes back.
    void update(double fraction, const std::string& step);

    /// For an action whose end is not known: shows for how long it has been going on.
    void elapse(double seconds, const std::string& step);

private:
    void show(const std::string& measure, const std::string& drawing, const std::string& step);
    void draw(std::string line, const std::string& step);

    std::ostream& out_;
    const Style style_;
    const std::size_t columns_;
    double fraction_{0};
    std::string drawn_;  // what stands on the terminal's line
    std::string step_;   // the step printed last
};

}  // namespace calibrate
