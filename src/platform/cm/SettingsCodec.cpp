#include "platform/cm/SettingsCodec.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborStreamReader>
#include <QCborStreamWriter>
#include <QCborValue>
#include <QStringList>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <iterator>
#include <stdexcept>

namespace platform {

namespace {

/// Deeper than any record, and less deep than the decoder's own limit.
constexpr int kDeepest = 64;

class Encoder {
public:
    explicit Encoder(QByteArray* bytes) : writer_(bytes) {}

    void append(const QVariantHash& hash) {
        enter();
        writer_.startMap(static_cast<quint64>(hash.size()));
        for (auto entry = hash.cbegin(); entry != hash.cend(); ++entry) {
            writer_.append(QStringView(entry.key()));
            append(entry.value());
        }
        writer_.endMap();
        --depth_;
    }

private:
    void append(const QVariantList& list) {
        enter();
        writer_.startArray(static_cast<quint64>(list.size()));
        for (const QVariant& element : list)
            append(element);
        writer_.endArray();
        --depth_;
    }

    /// In half the space when nothing is lost: most numbers of a filter have been floats.
    void append(double number) {
        const auto narrow = static_cast<float>(number);
        const auto widened = static_cast<double>(narrow);
        if (std::bit_cast<std::uint64_t>(widened) == std::bit_cast<std::uint64_t>(number))
            writer_.append(narrow);
        else
            writer_.append(number);
    }

    void append(const QVariant& value) {
        switch (value.userType()) {
            case QMetaType::UnknownType:
                return writer_.appendUndefined();
            case QMetaType::Bool:
                return writer_.append(value.toBool());
            case QMetaType::Int:
            case QMetaType::LongLong:
                return writer_.append(value.toLongLong());
            case QMetaType::UInt:
            case QMetaType::ULongLong:
                return writer_.append(static_cast<quint64>(value.toULongLong()));
            case QMetaType::Float:
            case QMetaType::Double:
                return append(value.toDouble());
            case QMetaType::QString:
                return writer_.append(QStringView(value.toString()));
            case QMetaType::QByteArray:
                return writer_.append(value.toByteArray());
            case QMetaType::QStringList:
            case QMetaType::QVariantList:
                return append(value.toList());
            case QMetaType::QVariantHash:
            case QMetaType::QVariantMap:
                return append(value.toHash());
            default:
                throw std::runtime_error(std::string("it holds a ") + value.typeName() +
                                         ", which cannot be stored");
        }
    }

    void enter() {
        if (++depth_ > kDeepest)
            throw std::runtime_error("it is nested too deep to be stored");
    }

    QCborStreamWriter writer_;
    int depth_{0};
};

QVariant toVariant(const QCborValue& value);

QVariantHash toHash(const QCborMap& map) {
    QVariantHash hash;
    for (const auto& [key, value] : map) {
        if (!key.isString())
            throw std::runtime_error("a key is not a text");
        hash.insert(key.toString(), toVariant(value));
    }
    return hash;
}

QVariantList toList(const QCborArray& array) {
    QVariantList list;
    list.reserve(static_cast<int>(array.size()));
    std::transform(array.begin(), array.end(), std::back_inserter(list), toVariant);
    return list;
}

QVariant toVariant(const QCborValue& value) {
    if (value.isMap())
        return toHash(value.toMap());
    if (value.isArray())
        return toList(value.toArray());
    if (value.isUndefined() || value.isNull())
        return {};
    return value.toVariant();
}

}  // namespace

QByteArray encodeSetting(const VeskValue& value) {
    QByteArray bytes;
    Encoder(&bytes).append(value.hash());
    return bytes;
}

VeskValue decodeSetting(const QByteArray& bytes) {
    QCborStreamReader reader(bytes);
    const QCborValue content = QCborValue::fromCbor(reader);
    if (reader.lastError() != QCborError::NoError)
        throw std::runtime_error(reader.lastError().toString().toStdString());
    if (reader.currentOffset() != bytes.size())
        throw std::runtime_error("there is more than one value");
    if (!content.isMap())
        throw std::runtime_error("it is not a record");
    return VeskValue(toHash(content.toMap()));
}

}  // namespace platform
