#include "host/RecordFromJson.h"

#include "host/ValueJson.h"

#include <algorithm>
#include <limits>

namespace host {

using nlohmann::json;

namespace {

/// Where a part of what is at `pointer` is.
std::string placeOf(const std::string& pointer, const std::string& part) {
    return pointer + "/" + part;
}

[[noreturn]] void refuse(const json& document, const std::string& expected,
                         const std::string& pointer) {
    const std::string place = pointer.empty() ? "" : pointer + ": ";
    throw ValueError(place + "expected " + expected + ", found " + shownJson(document));
}

template <typename Integer>
Integer integerFromJson(const json& document, const std::string& pointer) {
    using Limits = std::numeric_limits<Integer>;
    const bool isSigned64 =
        document.is_number_integer() && (!document.is_number_unsigned() ||
                                         document.get<std::uint64_t>() <= std::uint64_t{INT64_MAX});
    if (!isSigned64 || document.get<std::int64_t>() < std::int64_t{Limits::min()} ||
        document.get<std::int64_t>() > std::int64_t{Limits::max()})
        refuse(document,
               "an integer from " + std::to_string(Limits::min()) + " to " +
                   std::to_string(Limits::max()),
               pointer);
    return static_cast<Integer>(document.get<std::int64_t>());
}

double doubleFromJson(const json& document, const std::string& pointer) {
    if (document.is_number())
        return document.get<double>();
    if (document == "Infinity")
        return std::numeric_limits<double>::infinity();
    if (document == "-Infinity")
        return -std::numeric_limits<double>::infinity();
    if (document == "NaN")
        return std::numeric_limits<double>::quiet_NaN();
    refuse(document, "a number", pointer);
}

bool boolFromJson(const json& document, const std::string& pointer) {
    if (!document.is_boolean())
        refuse(document, "true or false", pointer);
    return document.get<bool>();
}

QString stringFromJson(const json& document, const std::string& pointer) {
    if (!document.is_string())
        refuse(document, "a text", pointer);
    return QString::fromStdString(document.get<std::string>());
}

/// A list whose elements `convert(element, pointer)` makes.
template <typename Convert>
QVariantList listFromJson(const json& document, const std::string& pointer, Convert convert) {
    if (!document.is_array())
        refuse(document, "a list", pointer);
    QVariantList list;
    list.reserve(static_cast<int>(document.size()));
    for (std::size_t index = 0; index < document.size(); ++index)
        list.append(QVariant(convert(document[index], placeOf(pointer, std::to_string(index)))));
    return list;
}

void checkKeysKnown(const json& document, const RecordSchema& schema, const std::string& pointer) {
    for (const auto& [key, value] : document.items()) {
        const QString name = QString::fromStdString(key);
        if (std::none_of(schema.fields.begin(), schema.fields.end(),
                         [&](const auto& field) { return field.key == name; }))
            throw ValueError(placeOf(pointer, key) + ": this field is not known");
    }
}

void checkCounts(const QVariantHash& record, const RecordSchema& schema,
                 const std::string& pointer) {
    for (const auto& field : schema.fields) {
        if (field.counts.isEmpty())
            continue;
        const int length = record.value(field.counts).toList().size();
        const int count = record.value(field.key).toInt();
        if (count < 0 || count > length)
            throw ValueError(placeOf(pointer, field.key.toStdString()) + ": " +
                             std::to_string(count) + " of a list of " + std::to_string(length));
    }
}

void checkFault(const QVariantHash& record, const RecordSchema& schema,
                const std::string& pointer) {
    const std::string fault = schema.fault != nullptr ? schema.fault(record) : "";
    if (!fault.empty())
        throw ValueError(pointer + ": " + fault);
}

QVariantHash recordFromJson(const json& document, const RecordSchema& schema,
                            const std::string& pointer) {
    if (!document.is_object())
        refuse(document, "an object", pointer);
    checkKeysKnown(document, schema, pointer);
    QVariantHash record;
    for (const auto& field : schema.fields) {
        const std::string key = field.key.toStdString();
        if (document.contains(key))
            record.insert(field.key, fieldFromJson(document.at(key), field, placeOf(pointer, key)));
        else if (field.presence == Presence::Required)
            throw ValueError(placeOf(pointer, key) + ": this field is missing");
    }
    checkCounts(record, schema, pointer);
    checkFault(record, schema, pointer);
    return record;
}

QVariantList recordsFromJson(const json& document, const RecordSchema& schema,
                             const std::string& pointer) {
    return listFromJson(document, pointer, [&](const json& element, const std::string& place) {
        return recordFromJson(element, schema, place);
    });
}

QVariant integerVariant(const json& document) {
    if (document.is_number_unsigned() && document.get<std::uint64_t>() > std::uint64_t{INT64_MAX})
        return qulonglong{document.get<std::uint64_t>()};
    const auto number = document.get<std::int64_t>();
    if (number == static_cast<std::int32_t>(number))
        return static_cast<std::int32_t>(number);
    return qlonglong{number};
}

QVariantHash hashFromJson(const json& document) {
    QVariantHash hash;
    for (const auto& [key, value] : document.items())
        hash.insert(QString::fromStdString(key), variantFromJson(value));
    return hash;
}

}  // namespace

QVariant fieldFromJson(const json& document, const RecordField& field, const std::string& pointer) {
    switch (field.kind) {
        case FieldKind::Bool:
            return boolFromJson(document, pointer);
        case FieldKind::I32:
            return integerFromJson<std::int32_t>(document, pointer);
        case FieldKind::U32:
            return integerFromJson<std::uint32_t>(document, pointer);
        case FieldKind::I64:
            return qlonglong{integerFromJson<std::int64_t>(document, pointer)};
        case FieldKind::Double:
            return doubleFromJson(document, pointer);
        case FieldKind::String:
            return stringFromJson(document, pointer);
        case FieldKind::DoubleList:
            return listFromJson(document, pointer, doubleFromJson);
        case FieldKind::Record:
            return recordFromJson(document, *field.record, pointer);
        case FieldKind::RecordList:
            return recordsFromJson(document, *field.record, pointer);
        case FieldKind::RecordListList:
            return listFromJson(document, pointer,
                                [&](const json& element, const std::string& place) {
                                    return recordsFromJson(element, *field.record, place);
                                });
    }
    throw ValueError("unknown kind of field");
}

QVariant variantFromJson(const json& document) {
    switch (document.type()) {
        case json::value_t::boolean:
            return document.get<bool>();
        case json::value_t::number_integer:
        case json::value_t::number_unsigned:
            return integerVariant(document);
        case json::value_t::number_float:
            return document.get<double>();
        case json::value_t::string:
            return QString::fromStdString(document.get<std::string>());
        case json::value_t::array:
            return listFromJson(document, "", [](const json& element, const std::string&) {
                return variantFromJson(element);
            });
        case json::value_t::object:
            return hashFromJson(document);
        default:
            return {};
    }
}

}  // namespace host
