#pragma once

#include <QMetaType>
#include <QString>
#include <QVariant>
#include <QVariantHash>

#include <iosfwd>
#include <type_traits>

/// The key/value record of the configuration tree, and the base of all typed records.
///
/// Records are values: copies share their data until one of them is changed, and comparing two
/// that share it costs nothing.
class VeskHash {
public:
    VeskHash() = default;
    explicit VeskHash(QVariantHash hash) : hash_(std::move(hash)) {}
    /// The hash in `variant`; empty when it holds none.
    explicit VeskHash(const QVariant& variant) : hash_(variant.toHash()) {}

    bool isEmpty() const { return hash_.isEmpty(); }
    bool contains(const QString& key) const { return hash_.contains(key); }
    /// An invalid QVariant when the key is missing.
    QVariant value(const QString& key) const { return hash_.value(key); }
    void insert(const QString& key, const QVariant& value) { hash_.insert(key, value); }
    void remove(const QString& key) { hash_.remove(key); }

    const QVariantHash& hash() const { return hash_; }
    operator QVariant() const { return hash_; }  // NOLINT(google-explicit-constructor)

    /// Exact: two numbers are equal when their bits are, so a NaN is equal to itself.
    friend bool operator==(const VeskHash& a, const VeskHash& b);
    friend bool operator!=(const VeskHash& a, const VeskHash& b) { return !(a == b); }

protected:
    template <typename T>
    T get(const QString& key) const {
        if constexpr (std::is_base_of_v<VeskHash, T>)
            return T(hash_.value(key));
        else if constexpr (std::is_enum_v<T>)
            return static_cast<T>(hash_.value(key).toInt());
        else
            return hash_.value(key).template value<T>();
    }

    template <typename T>
    void set(const QString& key, const T& value) {
        if constexpr (std::is_base_of_v<VeskHash, T>)
            hash_.insert(key, QVariant(value));
        else if constexpr (std::is_enum_v<T>)
            hash_.insert(key, static_cast<int>(value));
        else
            hash_.insert(key, QVariant::fromValue(value));
    }

private:
    QVariantHash hash_;
};

/// One line of JSON; long lists are shortened to their length.
std::ostream& operator<<(std::ostream& out, const VeskHash& hash);

/// Declares one field of a record: its key `Key()`, its getter `getter()` and its setter
/// `setKey()`. A macro, because only the preprocessor can join the names; a record then reads as
/// the list of its fields. A missing field reads as the type's zero value.
#define VESK_FIELD(Type, getter, Key)   \
    static QString Key() {              \
        return QStringLiteral(#getter); \
    }                                   \
    Type getter() const {               \
        return get<Type>(Key());        \
    }                                   \
    void set##Key(const Type& value) {  \
        set<Type>(Key(), value);        \
    }
