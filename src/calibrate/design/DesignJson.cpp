#include "calibrate/design/DesignJson.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/TextFile.h"
#include "calibrate/design/SystemDesign.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace calibrate::design {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "vesk-filter-design";
constexpr int kVersion = 1;

/// Far more than any device holds.
constexpr std::size_t kMostBytes = std::size_t{1} << 28;
constexpr double kLeastRate = 8'000;   // Hz
constexpr double kMostRate = 768'000;  // Hz
constexpr double kMostDelay = 1'000;   // ms
constexpr double kMostGain = 200;      // dB, up and down
constexpr double kMostSamples = 1e6;   // of delay
constexpr double kSameRate = 0.5;      // Hz

// ---- Writing ------------------------------------------------------------------------------------

Json sectionsJson(const std::vector<Section>& sections) {
    Json list = Json::array();
    for (const auto& section : sections)
        list.push_back(
            {{"a1", section.a1}, {"a2", section.a2}, {"b0", section.b0}, {"b1", section.b1}});
    return list;
}

Json filterJson(const ParallelFilter& filter) {
    return {{"sample_rate_hz", filter.sampleRate},
            {"taps", filter.taps},
            {"sections", sectionsJson(filter.sections)}};
}

Json speakerJson(const SpeakerCorrection& speaker) {
    Json filters = Json::array();
    for (const auto& filter : speaker.filters)
        filters.push_back(filterJson(filter));
    return {{"name", speaker.name},
            {"subwoofer", speaker.subwoofer},
            {"delay_ms", 1000 * speaker.alignment.delay},
            {"gain_db", speaker.alignment.gain},
            {"arrival_ms", 1000 * speaker.arrival.time},
            {"level_db", speaker.arrival.level},
            {"inverted", speaker.arrival.inverted},
            {"range_hz", {speaker.curve.lowest, speaker.curve.highest}},
            {"deviation_before_db", speaker.deviationBefore},
            {"deviation_after_db", speaker.deviationAfter},
            {"filters", filters}};
}

Json cellJson(const BassCell& cell) {
    Json json{{"section", cell.section}, {"input", cell.input}, {"output", cell.output}};
    if (holdsDelay(cell.section)) {
        json["delay_samples"] = cell.delay;
        json["gain_db"] = cell.gain;
        return json;
    }
    json["biquads"] = Json::array();
    for (const auto& biquad : cell.biquads)
        json["biquads"].push_back({{"a1", biquad.a1},
                                   {"a2", biquad.a2},
                                   {"b0", biquad.b0},
                                   {"b1", biquad.b1},
                                   {"b2", biquad.b2}});
    return json;
}

Json bassJson(const SystemDesign& design) {
    Json variants = Json::array();
    for (std::size_t i = 0; i < design.bass->cells.size(); ++i) {
        Json cells = Json::array();
        for (const auto& cell : design.bass->cells[i])
            cells.push_back(cellJson(cell));
        variants.push_back(
            {{"sample_rate_hz", design.speakers.front().filters[i].sampleRate}, {"cells", cells}});
    }
    return {{"crossover_hz", design.bass->management.crossover},
            {"subwoofer_inverted", design.bass->management.inverted},
            {"deviations_db", design.bass->deviations},
            {"variants", variants}};
}

// ---- Reading ------------------------------------------------------------------------------------

/// A value in a document that knows where it stands, so that every error can name the place.
class Value {
public:
    Value(const Json& json, std::string file) : json_(&json), file_(std::move(file)) {}

    [[noreturn]] void refuse(const std::string& what) const {
        throw BadInput(file_ + ": " + (place_.empty() ? "it" : place_) + " " + what);
    }

    bool has(const char* key) const { return json_->is_object() && json_->contains(key); }

    Value operator[](const char* key) const {
        if (!has(key))
            refuse(std::string("has no \"") + key + "\"");
        return {json_->at(key), file_, place_.empty() ? key : place_ + "." + key};
    }

    std::vector<Value> items() const {
        if (!json_->is_array())
            refuse("is no list");
        std::vector<Value> values;
        values.reserve(json_->size());
        for (const auto& item : *json_)
            values.push_back({item, file_, place_ + "[" + std::to_string(values.size()) + "]"});
        return values;
    }

    double number(double least, double most) const {
        const double value = json_->is_number() ? json_->get<double>() : std::nan("");
        if (!std::isfinite(value))
            refuse("is no number");
        if (value < least || value > most)
            refuse("is no number from " + fixed(least, 0) + " to " + fixed(most, 0));
        return value;
    }

    int integer(double least, double most) const {
        const double value = number(least, most);
        if (value != std::floor(value))
            refuse("is no whole number");
        return static_cast<int>(value);
    }

    float coefficient() const {
        constexpr auto kMost = static_cast<double>(std::numeric_limits<float>::max());
        return static_cast<float>(number(-kMost, kMost));
    }

    /// A list of numbers, of which there may be many.
    std::vector<float> coefficients() const {
        std::vector<float> values;
        for (const auto& item : items())
            values.push_back(item.coefficient());
        return values;
    }

    bool flag() const {
        if (!json_->is_boolean())
            refuse("is neither true nor false");
        return json_->get<bool>();
    }

    std::string text() const {
        if (!json_->is_string())
            refuse("is no text");
        return json_->get<std::string>();
    }

private:
    Value(const Json& json, std::string file, std::string place)
        : json_(&json), file_(std::move(file)), place_(std::move(place)) {}

    const Json* json_;
    std::string file_;
    std::string place_;  // "speakers[0].filters[1]"; empty: the whole document
};

Section sectionOf(const Value& value) {
    const Section section{value["a1"].coefficient(), value["a2"].coefficient(),
                          value["b0"].coefficient(), value["b1"].coefficient()};
    if (!decays(section.a1, section.a2))
        value.refuse("is unstable: it would ring for ever, and louder and louder");
    return section;
}

Biquad biquadOf(const Value& value) {
    const Biquad biquad{value["a1"].coefficient(), value["a2"].coefficient(),
                        value["b0"].coefficient(), value["b1"].coefficient(),
                        value["b2"].coefficient()};
    if (!decays(biquad.a1, biquad.a2))
        value.refuse("is unstable: it would ring for ever, and louder and louder");
    return biquad;
}

double rateOf(const Value& value) {
    return value["sample_rate_hz"].number(kLeastRate, kMostRate);
}

ParallelFilter filterOf(const Value& value) {
    ParallelFilter filter{rateOf(value), value["taps"].coefficients(), {}};
    for (const auto& section : value["sections"].items())
        filter.sections.push_back(sectionOf(section));
    if (filter.taps.empty())
        value["taps"].refuse("is empty");
    return filter;
}

std::vector<ParallelFilter> filtersOf(const Value& value) {
    std::vector<ParallelFilter> filters;
    for (const auto& item : value.items()) {
        auto filter = filterOf(item);
        if (std::ranges::count(filters, filter.sampleRate, &ParallelFilter::sampleRate) > 0)
            item.refuse("is a second one at " + hertz(filter.sampleRate));
        filters.push_back(std::move(filter));
    }
    if (filters.empty())
        value.refuse("is empty");
    return filters;
}

DeviceDesign::Speaker speakerOf(const Value& value) {
    return {value["name"].text(),
            value["subwoofer"].flag(),
            {value["delay_ms"].number(0, kMostDelay) / 1000,
             value["gain_db"].number(-kMostGain, kMostGain)},
            filtersOf(value["filters"])};
}

void checkSameRates(const std::vector<DeviceDesign::Speaker>& speakers, const Value& value) {
    const auto& first = speakers.front().filters;
    for (const auto& speaker : speakers) {
        if (!std::ranges::equal(speaker.filters, first, {}, &ParallelFilter::sampleRate,
                                &ParallelFilter::sampleRate))
            value.refuse("do not all have filters at the same sample rates in the same order");
    }
}

BassCell cellOf(const Value& value) {
    BassCell cell;
    cell.section = static_cast<unsigned>(value["section"].integer(0, kBassSections - 1));
    cell.input = static_cast<unsigned>(value["input"].integer(0, 1'000));
    cell.output = static_cast<unsigned>(value["output"].integer(0, 1'000));
    if (holdsDelay(cell.section)) {
        cell.delay = value["delay_samples"].integer(0, kMostSamples);
        cell.gain = value["gain_db"].number(-kMostGain, kMostGain);
        return cell;
    }
    for (const auto& biquad : value["biquads"].items())
        cell.biquads.push_back(biquadOf(biquad));
    return cell;
}

std::vector<BassCell> cellsAt(double sampleRate, const Value& variants) {
    for (const auto& variant : variants.items()) {
        if (std::abs(rateOf(variant) - sampleRate) >= kSameRate)
            continue;
        std::vector<BassCell> cells;
        for (const auto& cell : variant["cells"].items())
            cells.push_back(cellOf(cell));
        return cells;
    }
    variants.refuse("has nothing for " + hertz(sampleRate));
}

/// Cells of all sample rates do the same but for their coefficients.
void checkSameCells(const std::vector<std::vector<BassCell>>& variants, const Value& value) {
    const auto isSame = [](const BassCell& a, const BassCell& b) {
        return a.section == b.section && a.input == b.input && a.output == b.output;
    };
    for (const auto& cells : variants) {
        if (!std::ranges::equal(cells, variants.front(), isSame))
            value.refuse("do not all have the same cells in the same order");
    }
    if (variants.front().empty())
        value.refuse("hold no cells");
}

void checkFormat(const Value& document) {
    if (!document.has("format") || document["format"].text() != kFormat)
        document.refuse("is no design of 'vesk-calibrate design'");
    if (const auto version = document["version"]; version.integer(1, 1'000'000) != kVersion)
        version.refuse("is later than this program, which reads " + std::to_string(kVersion));
}

DeviceDesign designOf(const Value& document) {
    checkFormat(document);
    DeviceDesign design;
    for (const auto& speaker : document["speakers"].items())
        design.speakers.push_back(speakerOf(speaker));
    if (design.speakers.empty())
        document["speakers"].refuse("is empty");
    checkSameRates(design.speakers, document["speakers"]);
    if (!document.has("bass_management"))
        return design;
    const auto variants = document["bass_management"]["variants"];
    for (const auto& filter : design.speakers.front().filters)
        design.bassCells.push_back(cellsAt(filter.sampleRate, variants));
    checkSameCells(design.bassCells, variants);
    return design;
}

Json parsed(const std::string& text, const std::string& file) {
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        const auto end =
            text.begin() + static_cast<std::ptrdiff_t>(std::min(error.byte, text.size()));
        throw BadInput(file + ": is damaged or no JSON, at line " +
                       std::to_string(1 + std::count(text.begin(), end, '\n')));
    } catch (const Json::exception&) {
        throw BadInput(file + ": holds a number that is too large");
    }
}

}  // namespace

nlohmann::ordered_json toJson(const SystemDesign& design) {
    Json speakers = Json::array();
    for (const auto& speaker : design.speakers)
        speakers.push_back(speakerJson(speaker));
    Json json{{"format", kFormat},
              {"version", kVersion},
              {"attenuation_db", design.attenuation},
              {"speakers", speakers},
              {"warnings", design.warnings}};
    if (design.bass)
        json["bass_management"] = bassJson(design);
    return json;
}

DeviceDesign readDesign(const std::filesystem::path& path) {
    const std::string file = printable(path.string());
    const Json json = parsed(readTextFile(path, kMostBytes), file);
    return designOf(Value(json, file));
}

}  // namespace calibrate::design
