#include "calibrate/report/ReportPage.h"

#include "calibrate/Text.h"
#include "calibrate/report/FileNames.h"
#include "calibrate/report/Markup.h"
#include "calibrate/report/Plots.h"
#include "calibrate/report/StyleSheet.h"

#include <algorithm>
#include <cmath>

namespace calibrate::report {
namespace {

using measurement::Verdict;

constexpr double kLeastDistortion = -140;  // dB; less is what noise has left of nothing

Markup span(const std::string& style, const std::string& text) {
    return element("span", {{"class", style}}, text);
}

/// A name isolated from the text around it, in whatever direction it is written.
Markup nameMarkup(const std::string& name) {
    return element("bdi", {}, displayName(name));
}

std::string speakerId(std::size_t index) {
    return "speaker-" + std::to_string(index + 1);
}

/// "−3.2", with a sign of its own width; "0.0" is never negative; "–" for what is no number.
std::string figureText(double value, int decimals) {
    if (!std::isfinite(value))
        return "–";
    const double scale = std::pow(10, decimals);
    const double rounded = std::round(value * scale) / scale + 0.0;
    return (rounded < 0 ? "−" : "") + fixed(std::abs(rounded), decimals);
}

std::string orDash(const std::string& text) {
    return text.empty() ? "–" : text;
}

std::string optionalFigure(const std::optional<double>& value, const std::string& unit) {
    return value ? figureText(*value, 1) + " " + unit : "–";
}

struct Averages {
    std::optional<double> before;
    std::optional<double> now;
    bool measured{true};  ///< all of them
};

/// Of the speakers that are corrected.
Averages averages(const std::vector<SpeakerFigures>& all) {
    double before = 0;
    double now = 0;
    int count = 0;
    Averages result;
    for (const auto& figures : all) {
        if (!figures.deviationBefore || !figures.deviationNow())
            continue;
        before += *figures.deviationBefore;
        now += *figures.deviationNow();
        result.measured = result.measured && figures.deviationAfter.has_value();
        ++count;
    }
    if (count > 0) {
        result.before = before / count;
        result.now = now / count;
    }
    return result;
}

std::string verdictText(Verdict verdict) {
    switch (verdict) {
        case Verdict::good:
            return "All checks passed";
        case Verdict::poor:
            return "Usable, with remarks";
        case Verdict::unusable:
            break;
    }
    return "To be measured again";
}

Markup mark(Verdict verdict) {
    const auto* sign = verdict == Verdict::good ? "✓" : verdict == Verdict::poor ? "!" : "✕";
    const auto name = measurement::verdictName(verdict);
    return element("span", {{"class", "mark " + name}, {"role", "img"}, {"aria-label", name}},
                   sign);
}

Markup section(const std::string& title, const Markup& content) {
    return element("section", {}, element("h2", {}, title) + content);
}

Markup description(const std::string& term, const std::string& text) {
    return element("dt", {}, term) + element("dd", {}, element("bdi", {}, orDash(text)));
}

/// Writes the page's parts from top to bottom.
class Page {
public:
    Page(const Calibration& calibration, const std::vector<SpeakerFigures>& figures)
        : calibration_(calibration), figures_(figures) {}

    std::string text() const {
        const Attributes language{{"lang", "en"}};
        return "<!DOCTYPE html>\n" +
               element("html", language, head() + element("body", {}, body())).string() + "\n";
    }

private:
    Markup head() const {
        return element(
            "head", {},
            emptyElement("meta", {{"charset", "utf-8"}}) +
                emptyElement("meta", {{"name", "viewport"},
                                      {"content", "width=device-width, initial-scale=1"}}) +
                emptyElement("meta",
                             {{"http-equiv", "Content-Security-Policy"},
                              {"content", "default-src 'none'; style-src 'unsafe-inline'"}}) +
                emptyElement("meta", {{"name", "color-scheme"}, {"content", "light dark"}}) +
                element("title", {}, "Room calibration: " + deviceName()) +
                element("style", {}, Markup::raw(kStyleSheet)));
    }

    Markup body() const {
        Markup content = header() + cards() + warnings();
        const auto range = levelRange(calibration_, figures_);
        for (std::size_t i = 0; i < calibration_.speakers.size(); ++i)
            content += speaker(i, range);
        content += alignment() + checks() + settings() + footer();
        return element("main", {}, content);
    }

    std::string deviceName() const {
        const auto& name = calibration_.device.name;
        return name.empty() ? "device" : displayName(name);
    }

    Markup header() const {
        const Verdict verdict = worstVerdict(calibration_);
        return element("header", {},
                       element("p", {{"class", "eyebrow"}}, "Room calibration") +
                           element("h1", {}, element("bdi", {}, deviceName())) +
                           element("p", {{"class", "meta"}}, origin()) +
                           span("chip " + measurement::verdictName(verdict), verdictText(verdict)) +
                           element("p", {{"class", "lead"}}, lead()));
    }

    std::string origin() const {
        std::string text = orDash(utcTime(calibration_.time));
        if (calibration_.slot) {
            text += " · slot " + std::to_string(*calibration_.slot);
            if (!calibration_.slotName.empty())
                text += " “" + displayName(calibration_.slotName) + "”";
        }
        return text;
    }

    std::string lead() const {
        const auto count = counted(calibration_.speakers.size(), "loudspeaker");
        const Averages mean = averages(figures_);
        if (!mean.before)
            return count + " measured. No correction was made.";
        return count +
               " calibrated. On average the sound at the listening position deviated from "
               "the target by " +
               decibels(*mean.before) + "; with the correction it is " + decibels(*mean.now) +
               (mean.measured ? ", measured afterwards." : ", as predicted.");
    }

    Markup cards() const {
        double largest = 1e-9;
        for (const auto& figures : figures_)
            largest = std::max(
                {largest, figures.deviationBefore.value_or(0), figures.deviationNow().value_or(0)});
        Markup items;
        for (std::size_t i = 0; i < figures_.size(); ++i)
            items += element("li", {}, card(i, largest));
        return items.empty() ? items : element("ul", {{"class", "cards"}}, items);
    }

    Markup card(std::size_t index, double largest) const {
        const auto& figures = figures_[index];
        return element(
            "a", {{"href", "#" + speakerId(index)}},
            element("span", {{"class", "name"}}, nameMarkup(calibration_.speakers[index].name)) +
                cardFigures(figures) + span("small", cardNote(figures)) +
                meter("was", figures.deviationBefore, largest) +
                meter("is", figures.deviationNow(), largest));
    }

    static Markup cardFigures(const SpeakerFigures& figures) {
        if (!figures.deviationBefore)
            return span("figures", "–");
        Markup content = span("was", figureText(*figures.deviationBefore, 1));
        if (figures.deviationNow())
            content += Markup::text(" → ") + span("is", figureText(*figures.deviationNow(), 1));
        return element("span", {{"class", "figures"}}, content + span("unit", " dB"));
    }

    static std::string cardNote(const SpeakerFigures& figures) {
        if (!figures.deviationBefore)
            return "not measured";
        if (!figures.deviationNow())
            return "deviation from target";
        return figures.deviationAfter ? "deviation from target, measured"
                                      : "deviation from target, predicted";
    }

    static Markup meter(const std::string& style, const std::optional<double>& value,
                        double largest) {
        if (!value)
            return {};
        return element("span", {{"class", "meter"}},
                       element("span",
                               {{"class", style},
                                {"style", "width:" + fixed(100 * *value / largest, 1) + "%"}},
                               Markup()));
    }

    Markup warnings() const {
        Markup items;
        for (const auto& warning : allWarnings(calibration_))
            items += element("li", {}, mark(Verdict::poor) + element("span", {}, warning));
        return items.empty() ? items
                             : section("Good to know", element("ul", {{"class", "list"}}, items));
    }

    Markup speaker(std::size_t index, const LevelRange& range) const {
        const Speaker& speaker = calibration_.speakers[index];
        const std::string id = speakerId(index);
        return element("section", {{"id", id}},
                       element("h2", {}, nameMarkup(speaker.name)) +
                           element("p", {{"class", "about"}}, about(index)) +
                           plots(calibration_, index, figures_[index], range, id));
    }

    std::string about(std::size_t index) const {
        const Speaker& speaker = calibration_.speakers[index];
        const SpeakerFigures& figures = figures_[index];
        std::string text = "Measured at " + counted(speaker.positions.size(), "position");
        text += speaker.kind.empty() ? "." : "; " + displayName(speaker.kind) + ".";
        if (figures.deviationBefore)
            text += " Deviation from the target, " + hertz(figures.lowest) + " to " +
                    hertz(figures.highest) + ": " + decibels(*figures.deviationBefore) + " before";
        if (figures.deviationBefore && figures.deviationPredicted)
            text += ", " + decibels(*figures.deviationPredicted) + " predicted";
        if (figures.deviationBefore && figures.deviationAfter)
            text += ", " + decibels(*figures.deviationAfter) + " measured after";
        if (figures.deviationBefore)
            text += ".";
        if (figures.difference)
            text += " Prediction and measurement differ by " + decibels(*figures.difference) +
                    " at most.";
        if (speaker.verification && !speaker.verification->text.empty())
            text += " " + speaker.verification->text;
        return text;
    }

    Markup alignment() const {
        if (!calibration_.design || calibration_.design->speakers.empty())
            return {};
        Markup rows;
        for (std::size_t i = 0; i < calibration_.speakers.size(); ++i)
            rows += alignmentRow(i);
        const auto table = element("table", {}, alignmentHead() + element("tbody", {}, rows));
        return section("Alignment", element("p", {{"class", "about"}}, alignmentText()) + table);
    }

    static Markup alignmentHead() {
        Markup cells = element("th", {{"scope", "col"}}, "Loudspeaker");
        const std::vector<std::pair<std::string, std::string>> columns{
            {"Distance", "m"}, {"Level", "dB"}, {"Delay", "ms"}, {"Gain", "dB"}, {"Polarity", ""}};
        for (const auto& [name, unit] : columns)
            cells += element("th", {{"scope", "col"}}, Markup::text(name) + span("unit", unit));
        return element("thead", {}, element("tr", {}, cells));
    }

    Markup alignmentRow(std::size_t index) const {
        const auto& correction = calibration_.design->speakers[index];
        const auto cell = [](const std::string& text) { return element("td", {}, text); };
        return element(
            "tr", {},
            element("th", {{"scope", "row"}}, nameMarkup(calibration_.speakers[index].name)) +
                cell(distanceText(correction)) + cell(figureText(correction.arrival.level, 1)) +
                cell(figureText(1000 * correction.alignment.delay, 2)) +
                cell(figureText(correction.alignment.gain, 1)) +
                cell(correction.arrival.inverted ? "inverted" : "normal"));
    }

    /// m, or m more than the nearest one.
    std::string distanceText(const design::SpeakerCorrection& correction) const {
        if (calibration_.latency)
            return figureText(correction.arrival.distance(*calibration_.latency), 2);
        double nearest = correction.arrival.time;
        for (const auto& speaker : calibration_.design->speakers)
            nearest = std::min(nearest, speaker.arrival.time);
        const double further = correction.arrival.distance(nearest);
        return (std::isfinite(further) ? "+" : "") + figureText(further, 2);
    }

    std::string alignmentText() const {
        std::string text =
            "Delay and gain bring every loudspeaker's sound to the listening position "
            "at the same time and equally loud.";
        if (!calibration_.latency)
            text += " Distances count from the nearest loudspeaker.";
        if (calibration_.design->attenuation < 0)
            text += " All filters are lowered by " + decibels(-calibration_.design->attenuation) +
                    " so that nothing clips.";
        if (calibration_.design->bass)
            text += bassText();
        return text;
    }

    std::string bassText() const {
        const auto& bass = calibration_.design->bass->management;
        return " Below " + hertz(bass.crossover) + " the subwoofer plays for the others" +
               (bass.inverted ? ", with its polarity inverted." : ".");
    }

    Markup checks() const {
        Markup all;
        for (const auto& speaker : calibration_.speakers) {
            for (std::size_t i = 0; i < speaker.positions.size(); ++i)
                all += checkList(speaker, speaker.positions[i], positionName(speaker, i));
            if (speaker.verification)
                all += checkList(speaker, speaker.verification->sweep, ", measured after");
        }
        return all.empty()
                   ? all
                   : section("Noise and level checks", element("div", {{"class", "columns"}}, all));
    }

    static std::string positionName(const Speaker& speaker, std::size_t index) {
        return speaker.positions.size() > 1 ? ", position " + std::to_string(index + 1) : "";
    }

    /// Folded where there is nothing but good to tell.
    static Markup checkList(const Speaker& speaker, const SweepResult& sweep,
                            const std::string& which) {
        const Verdict worst = sweep.checks.worst();
        Markup items;
        for (const auto& check : sweep.checks.checks)
            items += element("li", {}, mark(check.verdict) + element("span", {}, check.text));
        const auto title = element("strong", {}, nameMarkup(speaker.name) + Markup::text(which));
        const auto head =
            element("summary", {},
                    mark(worst) + element("span", {}, title + span("small", levelText(sweep))));
        const auto list = items.empty() ? items : element("ul", {{"class", "list"}}, items);
        return element("details",
                       worst == Verdict::good ? Attributes{} : Attributes{{"open", "open"}},
                       head + list);
    }

    static const char* orderEnding(unsigned order) {
        return order == 2 ? "nd" : order == 3 ? "rd" : "th";
    }

    static std::string levelText(const SweepResult& sweep) {
        std::string text = "Level " + optionalFigure(sweep.level, "dBFS") + ", noise " +
                           optionalFigure(sweep.noise, "dBFS");
        std::string products;
        for (const auto& product : sweep.distortion)
            if (product.level > kLeastDistortion)
                products += (products.empty() ? "; distortion " : ", ") +
                            std::to_string(product.order) + orderEnding(product.order) + " " +
                            figureText(product.level, 0) + " dB";
        text += products;
        return text + ".";
    }

    Markup settings() const {
        const auto& device = calibration_.device;
        const auto& correction = calibration_.options.correction;
        const auto& limits = correction.limits;
        Markup items =
            description("Device", device.manufacturer + " " + device.model) +
            description("Address", device.address) + description("Identifier", device.uuid) +
            description("Microphone", calibration_.microphone.name) +
            description("Calibration file", calibration_.microphone.calibration) +
            description("Target", calibration_.target) +
            description("Corrected range", hertz(limits.lowest) + " to " + hertz(limits.highest)) +
            description("Limits", "boost " + decibels(limits.maxBoost) + ", cut " +
                                      decibels(limits.maxCut) + ", group delay " +
                                      fixed(1000 * limits.maxGroupDelay, 0) + " ms") +
            description("Filters", filtersText());
        for (const auto& version : calibration_.versions)
            items += description(printable(version.of), version.version);
        return section("Settings", element("dl", {}, items));
    }

    std::string filtersText() const {
        const auto* correction = correctionOf(calibration_, 0);
        std::string text;
        if (correction)
            for (const auto& filter : correction->filters)
                text += (text.empty() ? "" : "; ") + hertz(filter.sampleRate) + ": " +
                        counted(filter.taps.size(), "tap") + ", " +
                        counted(filter.sections.size(), "section");
        return text;
    }

    static Markup footer() {
        return element(
            "footer", {},
            element("p", {},
                    "Deviation is the standard deviation of the level, averaged over 1/6 octave, "
                    "from the target, at equal steps of frequency on a logarithmic axis. 1 dB is "
                    "hardly heard, 3 dB clearly.") +
                element("p", {},
                        std::string("The folder of this page holds the same for programs (") +
                            kJsonFile + ", " + kFiltersFile +
                            ") and everything measured: recordings, impulse responses and filters "
                            "as WAV, responses as text."));
    }

    const Calibration& calibration_;
    const std::vector<SpeakerFigures>& figures_;
};

}  // namespace

std::string page(const Calibration& calibration, const std::vector<SpeakerFigures>& figures) {
    return Page(calibration, figures).text();
}

}  // namespace calibrate::report
