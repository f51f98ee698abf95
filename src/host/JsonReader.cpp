#include "host/JsonReader.h"

#include <cerrno>
#include <fstream>
#include <system_error>
#include <utility>

namespace host {

using nlohmann::json;

namespace {

constexpr std::size_t kShownCharacters = 40;

std::string shown(const json& value) {
    const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
    return text.size() <= kShownCharacters ? text : text.substr(0, kShownCharacters) + "...";
}

std::string escaped(const std::string& key) {
    return json::json_pointer().operator/=(key).to_string();
}

std::string rangeText(const std::string& what, auto minimum, auto maximum) {
    return what + " from " + std::to_string(minimum) + " to " + std::to_string(maximum);
}

/// The parser itself keeps the last of two equal keys.
class DuplicateKeys {
public:
    bool operator()(int /*depth*/, json::parse_event_t event, json& value) {
        if (event == json::parse_event_t::object_start)
            open_.emplace_back();
        else if (event == json::parse_event_t::object_end)
            open_.pop_back();
        else if (event == json::parse_event_t::key)
            remember(value.get<std::string>());
        return true;
    }

private:
    void remember(const std::string& key) {
        if (!open_.back().insert(key).second)
            throw std::runtime_error("the key \"" + key + "\" appears twice in the same object");
    }

    std::vector<std::set<std::string>> open_;
};

}  // namespace

JsonReader::JsonReader(const json& value, std::string file, std::string pointer)
    : value_(&value), file_(std::move(file)), pointer_(std::move(pointer)) {
}

std::string JsonReader::text() const {
    if (!value_->is_string())
        refuse("a text");
    return value_->get<std::string>();
}

std::string JsonReader::nonEmptyText() const {
    const std::string content = text();
    if (content.empty())
        refuse("a text that is not empty");
    return content;
}

bool JsonReader::boolean() const {
    if (!value_->is_boolean())
        refuse("true or false");
    return value_->get<bool>();
}

double JsonReader::number() const {
    if (!value_->is_number())
        refuse("a number");
    return value_->get<double>();
}

std::int64_t JsonReader::integer(std::int64_t minimum, std::int64_t maximum) const {
    const bool tooLarge = value_->is_number_unsigned() &&
                          value_->get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX);
    if (!value_->is_number_integer() || tooLarge || value_->get<std::int64_t>() < minimum ||
        value_->get<std::int64_t>() > maximum)
        refuse(rangeText("an integer", minimum, maximum));
    return value_->get<std::int64_t>();
}

std::vector<JsonReader> JsonReader::list(std::size_t minimumLength,
                                         std::size_t maximumLength) const {
    if (!value_->is_array())
        refuse("a list");
    if (value_->size() < minimumLength || value_->size() > maximumLength)
        fail("expected a list with " + rangeText("a length", minimumLength, maximumLength) +
             ", found " + std::to_string(value_->size()) + " elements");
    std::vector<JsonReader> elements;
    for (std::size_t index = 0; index < value_->size(); ++index)
        elements.emplace_back((*value_)[index], file_, pointer_ + "/" + std::to_string(index));
    return elements;
}

void JsonReader::refuse(const std::string& expected) const {
    fail("expected " + expected + ", found " + shown(*value_));
}

void JsonReader::fail(const std::string& what) const {
    throw DescriptionError(file_ + ": " + (pointer_.empty() ? "the document" : pointer_) + ": " +
                           what);
}

JsonObjectReader::JsonObjectReader(const JsonReader& object) : object_(object) {
    if (!object_.value_->is_object())
        object_.refuse("an object");
}

JsonReader JsonObjectReader::required(const std::string& key) {
    if (auto value = optional(key))
        return *value;
    static const json nothing;
    JsonReader(nothing, object_.file_, object_.pointer_ + escaped(key)).fail("this key is missing");
}

std::optional<JsonReader> JsonObjectReader::optional(const std::string& key) {
    known_.insert(key);
    if (!object_.value_->contains(key))
        return std::nullopt;
    return at(key);
}

void JsonObjectReader::finish() const {
    for (const auto& [key, value] : object_.value_->items())
        if (!known_.contains(key))
            at(key).fail("this key is not known");
}

JsonReader JsonObjectReader::at(const std::string& key) const {
    return {object_.value_->at(key), object_.file_, object_.pointer_ + escaped(key)};
}

json parseJsonFile(const std::string& file) {
    std::ifstream in(file);
    if (!in)
        throw DescriptionError(file +
                               ": cannot be opened: " + std::generic_category().message(errno));
    try {
        return json::parse(in, DuplicateKeys());
    } catch (const std::exception& error) {
        throw DescriptionError(file + ": not a JSON document: " + error.what());
    }
}

}  // namespace host
