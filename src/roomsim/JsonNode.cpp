#include "roomsim/JsonNode.h"

#include "roomsim/RoomError.h"

#include <cerrno>
#include <sstream>

namespace roomsim {

void JsonNode::fail(const std::string& reason) const {
    const std::string place = key_.empty() ? file_.string() : file_.string() + ": " + key_;
    throw RoomError(EINVAL, place + ": " + reason);
}

void JsonNode::expectKeys(const std::set<std::string>& known) const {
    if (!value_.is_object())
        fail("is not an object");
    for (const auto& [name, value] : value_.items()) {
        if (!known.contains(name))
            JsonNode(file_, value, key_.empty() ? name : key_ + "." + name).fail("is not known");
    }
}

JsonNode JsonNode::at(const std::string& name) const {
    const std::string key = key_.empty() ? name : key_ + "." + name;
    if (!has(name))
        JsonNode(file_, value_, key).fail("is missing");
    return {file_, value_.at(name), key};
}

std::optional<JsonNode> JsonNode::find(const std::string& name) const {
    return has(name) ? std::optional(at(name)) : std::nullopt;
}

std::vector<JsonNode> JsonNode::elements() const {
    if (!value_.is_array())
        fail("is not an array");
    std::vector<JsonNode> elements;
    for (std::size_t i = 0; i < value_.size(); ++i)
        elements.emplace_back(file_, value_.at(i), key_ + "[" + std::to_string(i) + "]");
    return elements;
}

std::string JsonNode::text() const {
    if (!value_.is_string())
        fail("is not a text");
    return value_.get<std::string>();
}

bool JsonNode::boolean() const {
    if (!value_.is_boolean())
        fail("is neither true nor false");
    return value_.get<bool>();
}

std::uint64_t JsonNode::count() const {
    if (!value_.is_number_unsigned())
        fail("is not a whole number from 0 on");
    return value_.get<std::uint64_t>();
}

double JsonNode::number(double lowest, double highest) const {
    if (!value_.is_number())
        fail("is not a number");
    const double number = value_.get<double>();
    if (number >= lowest && number <= highest)
        return number;
    std::ostringstream reason;
    reason << "is " << number << ", not between " << lowest << " and " << highest;
    fail(reason.str());
}

double JsonNode::numberOr(const std::string& name, double otherwise, double lowest,
                          double highest) const {
    return has(name) ? at(name).number(lowest, highest) : otherwise;
}

}  // namespace roomsim
