#include "calibrate/run/Narrator.h"

#include <algorithm>
#include <cmath>

namespace calibrate::run {
namespace {

/// Programs are told the progress in so many parts.
constexpr double kParts = 20;

}  // namespace

void Narrator::begin(const std::string& step) {
    end();
    step_ = step;
    told_ = -1;
    if (!console_.json())
        bar_.reset(new ProgressBar(console_.progressBar()));
    progress(0, step);
}

void Narrator::progress(double fraction, const std::string& detail) {
    if (bar_)
        bar_->update(fraction, detail);
    const int part = static_cast<int>(kParts * std::clamp(fraction, 0.0, 1.0));
    if (!console_.json() || console_.quiet() || part <= told_)
        return;
    told_ = part;
    print("progress", {{"step", step_}, {"detail", detail}, {"fraction", part / kParts}});
}

void Narrator::end() {
    bar_.reset();
}

void Narrator::tell(const std::string& event, const std::string& text, const Json& details) {
    end();
    if (console_.json())
        print(event, details);
    else if (!text.empty())
        console_.note(text);
}

void Narrator::warn(const std::string& text) {
    end();
    if (console_.json())
        print("warning", {{"text", text}});
    else
        console_.warn(text);
}

void Narrator::print(const std::string& event, const Json& details) const {
    Json object{{"event", event}};
    object.update(details);
    console_.printLine("", object);
}

}  // namespace calibrate::run
