#include "host/ValueJson.h"

#include "host/RecordFromJson.h"
#include "host/RecordSchema.h"

#include <cmath>

namespace host {

using nlohmann::json;

namespace {

constexpr std::size_t kLongList = 8;  // elements
constexpr std::size_t kShownCharacters = 60;
constexpr int kDeepestDocument = 32;

struct ValueType {
    const char* name;
    QString key;  ///< of the value's hash
    FieldKind kind;
};

const std::vector<ValueType>& valueTypes() {
    static const std::vector<ValueType> types{
        {"bool", VeskValue::Bool(), FieldKind::Bool},
        {"i32", VeskValue::I32(), FieldKind::I32},
        {"double", VeskValue::Double(), FieldKind::Double},
        {"string", VeskValue::String(), FieldKind::String},
        {"doubleList", VeskValue::DoubleList(), FieldKind::DoubleList},
        {"diracConfig", VeskValue::DiracConfig(), FieldKind::Record},
        {"diracSlotsList", VeskValue::DiracSlotsList(), FieldKind::Record}};
    return types;
}

constexpr const char* kOtherRecord = "record";

/// The type of a value that holds one of the known contents, otherwise null.
const ValueType* knownType(const VeskValue& value) {
    if (value.hash().size() != 1)
        return nullptr;
    for (const auto& type : valueTypes())
        if (value.contains(type.key))
            return &type;
    return nullptr;
}

const ValueType& typeNamed(const std::string& name) {
    for (const auto& type : valueTypes())
        if (type.name == name)
            return type;
    throw ValueError("there is no type \"" + name + "\"");
}

json doubleToJson(double number) {
    if (std::isfinite(number))
        return number;
    if (std::isnan(number))
        return "NaN";
    return number > 0 ? "Infinity" : "-Infinity";
}

json listToJson(const QVariantList& list) {
    json array = json::array();
    for (const QVariant& element : list)
        array.push_back(variantToJson(element));
    return array;
}

json hashToJson(const QVariantHash& hash) {
    json object = json::object();
    for (auto entry = hash.begin(); entry != hash.end(); ++entry)
        object[entry.key().toStdString()] = variantToJson(entry.value());
    return object;
}

json stringsToJson(const QStringList& strings) {
    json array = json::array();
    for (const QString& text : strings)
        array.push_back(text.toStdString());
    return array;
}

/// Documents are walked by recursion, which a document from outside must not make endless.
bool acceptDepth(int depth, json::parse_event_t /*event*/, json& /*value*/) {
    if (depth > kDeepestDocument)
        throw ValueError("nested too deeply");
    return true;
}

json parsed(const std::string& text) {
    try {
        return json::parse(text, acceptDepth);
    } catch (const json::exception&) {
        throw ValueError("not JSON: " + shownJson(text));
    }
}

/// A string may be given as JSON or plainly.
json documentOf(const ValueType& type, const std::string& text) {
    if (type.kind == FieldKind::String && !text.starts_with('"'))
        return text;
    return parsed(text);
}

}  // namespace

std::string shownJson(const json& document) {
    constexpr bool kAsciiOnly = true;
    const std::string text = document.dump(-1, ' ', kAsciiOnly, json::error_handler_t::replace);
    return text.size() <= kShownCharacters ? text : text.substr(0, kShownCharacters) + "...";
}

std::string valueType(const VeskValue& value) {
    if (value.isEmpty())
        return "";
    const ValueType* const type = knownType(value);
    return type != nullptr ? type->name : kOtherRecord;
}

json valueToJson(const VeskValue& value) {
    if (value.isEmpty())
        return nullptr;
    const ValueType* const type = knownType(value);
    return type != nullptr ? variantToJson(value.value(type->key)) : hashToJson(value.hash());
}

json variantToJson(const QVariant& variant) {
    switch (static_cast<QMetaType::Type>(variant.type())) {
        case QMetaType::UnknownType:
            return nullptr;
        case QMetaType::Bool:
            return variant.toBool();
        case QMetaType::Int:
        case QMetaType::LongLong:
            return variant.toLongLong();
        case QMetaType::UInt:
        case QMetaType::ULongLong:
            return variant.toULongLong();
        case QMetaType::Float:
        case QMetaType::Double:
            return doubleToJson(variant.toDouble());
        case QMetaType::QVariantList:
            return listToJson(variant.toList());
        case QMetaType::QVariantHash:
            return hashToJson(variant.toHash());
        case QMetaType::QStringList:
            return stringsToJson(variant.toStringList());
        default:
            return variant.toString().toStdString();
    }
}

json withoutLongLists(const json& document) {
    if (document.is_array() && document.size() > kLongList)
        return std::to_string(document.size()) + " elements";
    if (!document.is_structured())
        return document;
    json result = document;
    for (auto& element : result)
        element = withoutLongLists(element);
    return result;
}

VeskValue valueFromText(const std::string& type, const std::string& text) {
    VeskValue value;
    if (type == kOtherRecord)
        return VeskValue(argumentsFromText(text));
    const ValueType& known = typeNamed(type);
    const RecordField content{
        known.key, known.kind, Presence::Required, recordSchema(known.key), {}};
    const json document = documentOf(known, text);
    if (known.kind == FieldKind::DoubleList && document.empty())
        throw ValueError("expected a list of at least one number, found " + shownJson(document));
    value.insert(known.key, fieldFromJson(document, content, ""));
    return value;
}

std::string guessedType(const std::string& text) {
    const json document = json::parse(text, nullptr, false);
    if (document.is_boolean())
        return "bool";
    if (document.is_number_integer())
        return "i32";
    if (document.is_number_float())
        return "double";
    if (document.is_array())
        return "doubleList";
    return document.is_object() ? kOtherRecord : "string";
}

QVariantHash argumentsFromText(const std::string& text) {
    const json document = parsed(text);
    if (!document.is_object())
        throw ValueError("expected an object, found " + shownJson(document));
    return variantFromJson(document).toHash();
}

}  // namespace host
