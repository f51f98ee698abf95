#pragma once

#include "calibrate/Console.h"
#include "calibrate/JsonOutput.h"

#include <memory>
#include <string>

namespace calibrate::run {

/// Tells a person, or a program, what a long action does: lines and progress bars, or with --json
/// one object on a line for everything that happens.
class Narrator {
public:
    explicit Narrator(const Console& console) : console_(console) {}
    ~Narrator() { end(); }
    Narrator(const Narrator&) = delete;
    Narrator& operator=(const Narrator&) = delete;

    /// Begins a step; progress() belongs to it until the next one or end().
    void begin(const std::string& step);
    /// `fraction` of the step, 0 to 1.
    void progress(double fraction, const std::string& detail);
    void end();

    /// Tells something that happened: `text` to a person, silent when quiet; an object with
    /// "event": `event` and the keys of `details` to a program.
    void tell(const std::string& event, const std::string& text, const Json& details);

    /// Tells what a person should look at, even when quiet.
    void warn(const std::string& text);

    const Console& console() const { return console_; }

private:
    void print(const std::string& event, const Json& details) const;

    const Console& console_;
    std::string step_;
    std::unique_ptr<ProgressBar> bar_;
    int told_{-1};  // twentieths of the step
};

}  // namespace calibrate::run
