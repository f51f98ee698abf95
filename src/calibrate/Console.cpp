#include "calibrate/Console.h"

#include "calibrate/Errors.h"

#include <nlohmann/json.hpp>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace calibrate {
namespace {

/// A descriptor that becomes readable when a stop is requested.
class StopDescriptor {
public:
    explicit StopDescriptor(const std::stop_token& stop)
        : descriptor_(eventfd(0, EFD_CLOEXEC)),
          callback_(stop, [this] { eventfd_write(descriptor_, 1); }) {}
    ~StopDescriptor() { close(descriptor_); }
    StopDescriptor(const StopDescriptor&) = delete;
    StopDescriptor& operator=(const StopDescriptor&) = delete;

    int get() const { return descriptor_; }

private:
    int descriptor_;
    std::stop_callback<std::function<void()>> callback_;
};

/// One line from the descriptor, without its end.
std::string readLine(int input, const std::stop_token& stop) {
    const StopDescriptor stopDescriptor(stop);
    std::string line;
    for (;;) {
        pollfd descriptors[] = {{input, POLLIN, 0}, {stopDescriptor.get(), POLLIN, 0}};
        poll(descriptors, 2, -1);
        if (descriptors[1].revents != 0)
            throw Interrupted("interrupted");
        char character = 0;
        if (read(input, &character, 1) != 1 || character == '\n')
            return line;
        line += character;
    }
}

}  // namespace

void checkOutput(const std::ostream& out) {
    if (!out)
        throw OutputError(
            "standard output cannot be written: its reader is gone, or the disk full");
}

void Console::print(const nlohmann::ordered_json& result) const {
    using Json = nlohmann::ordered_json;
    environment_.out << result.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

void Console::printLine(const std::string& text, const nlohmann::ordered_json& result) const {
    using Json = nlohmann::ordered_json;
    environment_.out << (json_ ? result.dump(-1, ' ', false, Json::error_handler_t::replace) : text)
                     << std::endl;
    checkOutput(environment_.out);
}

void Console::report(const std::string& text, const nlohmann::ordered_json& result) const {
    if (json_)
        print(result);
    else if (!quiet_)
        environment_.out << text << '\n';
}

void Console::note(const std::string& text) const {
    if (!json_ && !quiet_)
        environment_.out << text << '\n';
}

void Console::warn(const std::string& text) const {
    environment_.err << "vesk-calibrate: warning: " << text << '\n';
}

ProgressBar Console::progressBar() const {
    const auto style = quiet_                       ? ProgressBar::Style::none
                       : environment_.errIsTerminal ? ProgressBar::Style::bar
                                                    : ProgressBar::Style::lines;
    return {environment_.err, style, environment_.errColumns};
}

bool Console::confirm(const std::string& question) const {
    if (!environment_.inputIsTerminal)
        throw BadInput(question + " Nobody can answer here: add --yes");
    environment_.err << question << " [y/N] " << std::flush;
    const std::string answer = readLine(environment_.input, environment_.stop);
    return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace calibrate
