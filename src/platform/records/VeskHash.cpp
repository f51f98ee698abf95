#include "sdk/records/VeskHash.h"

#include <QStringList>
#include <QVariantList>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <ostream>

namespace {

// QVariant's own comparison takes doubles that differ in the last digits for equal, and a NaN for
// different from itself. A value of the tree has changed when a bit of it has.

bool same(const QVariant& a, const QVariant& b);

bool same(const QVariantHash& a, const QVariantHash& b) {
    if (a.isSharedWith(b))
        return true;
    return a.size() == b.size() &&
           std::all_of(a.keyValueBegin(), a.keyValueEnd(), [&b](const auto& entry) {
               const auto other = b.constFind(entry.first);
               return other != b.constEnd() && same(entry.second, *other);
           });
}

bool same(const QVariantList& a, const QVariantList& b) {
    return a.isSharedWith(b) ||
           std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const QVariant& x, const QVariant& y) { return same(x, y); });
}

template <typename T>
const T& content(const QVariant& variant) {
    return *static_cast<const T*>(variant.constData());
}

bool same(double a, double b) {
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

bool isFloatingPoint(const QVariant& variant) {
    return variant.userType() == QMetaType::Double || variant.userType() == QMetaType::Float;
}

bool isInteger(const QVariant& variant) {
    switch (variant.userType()) {
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
            return true;
        default:
            return false;
    }
}

bool isNegative(const QVariant& integer) {
    const bool isSigned =
        integer.userType() == QMetaType::Int || integer.userType() == QMetaType::LongLong;
    return isSigned && integer.toLongLong() < 0;
}

bool sameInteger(const QVariant& a, const QVariant& b) {
    return isNegative(a) == isNegative(b) && a.toULongLong() == b.toULongLong();
}

bool isNumber(const QVariant& variant) {
    return isInteger(variant) || isFloatingPoint(variant);
}

bool same(const QVariant& a, const QVariant& b) {
    if (isFloatingPoint(a) && isFloatingPoint(b))
        return same(a.toDouble(), b.toDouble());
    if (isInteger(a) && isInteger(b))
        return sameInteger(a, b);
    if (a.userType() != b.userType())
        return false;
    switch (a.userType()) {
        case QMetaType::QVariantHash:
            return same(content<QVariantHash>(a), content<QVariantHash>(b));
        case QMetaType::QVariantList:
            return same(content<QVariantList>(a), content<QVariantList>(b));
        default:
            return a == b;
    }
}

constexpr int kLongList = 16;  // elements

void print(std::ostream& out, const QVariant& variant);

void print(std::ostream& out, const QString& text) {
    out << '"';
    for (const char character : text.toUtf8()) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\')
            out << '\\' << character;
        else if (code >= 0x20)
            out << character;
        else
            out << "\\u00"
                << "0123456789abcdef"[code >> 4] << "0123456789abcdef"[code & 0xf];
    }
    out << '"';
}

/// The shortest digits that give the same number again.
void print(std::ostream& out, double number) {
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    out.write(digits.data(), end - digits.data());
}

void print(std::ostream& out, const QVariantList& list) {
    if (list.size() > kLongList && std::all_of(list.begin(), list.end(), isNumber)) {
        out << '[' << list.size() << " values]";
        return;
    }
    const char* separator = "";
    out << '[';
    for (const QVariant& element : list) {
        out << separator;
        print(out, element);
        separator = ", ";
    }
    out << ']';
}

void print(std::ostream& out, const QVariantHash& hash) {
    QStringList keys = hash.keys();
    keys.sort();
    const char* separator = "";
    out << '{';
    for (const QString& key : qAsConst(keys)) {
        out << separator;
        print(out, key);
        out << ": ";
        print(out, hash[key]);
        separator = ", ";
    }
    out << '}';
}

void print(std::ostream& out, const QVariant& variant) {
    switch (variant.userType()) {
        case QMetaType::QVariantHash:
            return print(out, content<QVariantHash>(variant));
        case QMetaType::QVariantList:
        case QMetaType::QStringList:
            return print(out, variant.toList());
        case QMetaType::Float:
        case QMetaType::Double:
            return print(out, variant.toDouble());
        case QMetaType::UnknownType:
            out << "null";
            return;
        case QMetaType::Bool:
            break;
        default:
            if (!isNumber(variant))
                return print(out, variant.toString());
    }
    out << variant.toString().toStdString();
}

}  // namespace

bool operator==(const VeskHash& a, const VeskHash& b) {
    return same(a.hash(), b.hash());
}

std::ostream& operator<<(std::ostream& out, const VeskHash& hash) {
    print(out, hash.hash());
    return out;
}
