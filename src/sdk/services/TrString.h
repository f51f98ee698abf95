#pragma once

#include "sdk/records/VeskHash.h"

#include <QList>

/// A value for the place "%1", "%2", … of a translatable text.
class TrArg {
public:
    explicit TrArg(QString text) : text_(std::move(text)) {}
    const QString& text() const { return text_; }

private:
    QString text_;
};

/// The context under which a text of the function `signature` is translated: its class, or the
/// function itself when it belongs to none. "void Dirac::stop(int)" gives "Dirac".
QString trExtractContext(const char* signature);

/// A text that the user interface translates: the source text, its context and its arguments.
class TrString : public VeskHash {
public:
    using VeskHash::VeskHash;
    TrString(const QString& context, const QString& source, const QList<TrArg>& arguments = {});

    VESK_FIELD(QString, context, Context)
    VESK_FIELD(QString, source, Source)
    VESK_FIELD(QStringList, arguments, Arguments)

    /// The untranslated text with its arguments in place.
    QString text() const;
};
