#pragma once

#include "sdk/records/VeskHash.h"

/// Why a request to the configuration tree failed. An empty name means "no error".
class CMError : public VeskHash {
public:
    using VeskHash::VeskHash;

    /// An error with a generic name and a text for people.
    explicit CMError(const QString& text) : CMError(QStringLiteral("Error"), text) {}
    CMError(const QString& name, const QString& text) {
        insert(Name(), name);
        insert(Text(), text);
    }

    /// Key of the short, stable identifier of the kind of error.
    static QString Name() { return QStringLiteral("name"); }
    /// Key of the text for people.
    static QString Text() { return QStringLiteral("text"); }

    QString name() const { return value(Name()).toString(); }
    QString text() const { return value(Text()).toString(); }
    bool isError() const { return !name().isEmpty(); }
};
