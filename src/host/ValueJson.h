#pragma once

#include "sdk/records/VeskValue.h"

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>

namespace host {

/// Why a text is not a value; names the place in it.
class ValueError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Name of the value's type: "bool", "i32", "double", "string", "doubleList", "diracConfig",
/// "diracSlotsList", or "record" for anything else; empty for an empty value.
std::string valueType(const VeskValue& value);

/// The content as JSON; null for an empty value. Numbers that JSON cannot hold are the texts
/// "Infinity", "-Infinity" and "NaN".
nlohmann::json valueToJson(const VeskValue& value);

/// The same for anything that a value can be made of.
nlohmann::json variantToJson(const QVariant& variant);

/// The document with each long list replaced by a text with its length.
nlohmann::json withoutLongLists(const nlohmann::json& document);

/// The beginning of the document as one line for a message.
std::string shownJson(const nlohmann::json& document);

/// Reads `text` as a value of `type`: JSON; for a string also the text itself. Throws ValueError
/// for an unknown type, for content of another type, and for a record with a field that is missing,
/// unknown, of another type, or a count that its list does not have.
VeskValue valueFromText(const std::string& type, const std::string& text);

/// The type of value that `text` looks like.
std::string guessedType(const std::string& text);

/// Reads a JSON object as the arguments of an action. Throws ValueError.
QVariantHash argumentsFromText(const std::string& text);

}  // namespace host
