#pragma once

#include "calibrate/ProgressBar.h"

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <stop_token>
#include <string>

namespace calibrate {

/// What surrounds the command: its streams and the wish to end it.
struct Environment {
    std::ostream& out;
    std::ostream& err;
    int input;               ///< descriptor of standard input
    bool inputIsTerminal;    ///< whether someone can answer a question
    bool errIsTerminal;      ///< whether a progress bar can be drawn
    std::size_t errColumns;  ///< width of that terminal in characters
    std::stop_token stop;
};

/// Throws OutputError when what was written did not arrive.
void checkOutput(const std::ostream& out);

/// How the command talks. Results, and the notes that belong to them, go to standard output;
/// progress, warnings, questions and errors to standard error.
class Console {
public:
    Console(const Environment& environment, bool json, bool quiet)
        : environment_(environment), json_(json), quiet_(quiet) {}

    /// Whether the result is wanted as JSON.
    bool json() const { return json_; }

    /// Whether success need not be told.
    bool quiet() const { return quiet_; }

    /// Standard output, for the text of a result that the user asked for.
    std::ostream& out() const { return environment_.out; }

    void print(const nlohmann::ordered_json& result) const;

    /// Prints one line of a result that grows while the command runs, at once: `text`, or `result`
    /// when JSON is wanted.
    void printLine(const std::string& text, const nlohmann::ordered_json& result) const;

    /// Says what was done: `text` on a line, or `result` when JSON is wanted.
    void report(const std::string& text, const nlohmann::ordered_json& result) const;

    /// Tells a detail of the result in words; silent when quiet or when JSON is wanted.
    void note(const std::string& text) const;

    /// Says what the user should look at; never silent.
    void warn(const std::string& text) const;

    ProgressBar progressBar() const;

    /// Asks on the terminal and waits for the answer. False: the answer is not yes.
    /// Throws BadInput when nobody can answer, Interrupted when the command is to end.
    bool confirm(const std::string& question) const;

private:
    const Environment& environment_;
    const bool json_;
    const bool quiet_;
};

}  // namespace calibrate
