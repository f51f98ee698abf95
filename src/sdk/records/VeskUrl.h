#pragma once

#include <QString>
#include <QUrl>
#include <QUrlQuery>

/// The address of a medium, for example "smt://play?socketAddress=name". A value type.
class VeskUrl {
public:
    explicit VeskUrl(const QString& text) : url_(text) {}

    /// Adds "name=value"; what a URL cannot carry is percent-encoded.
    void addQueryItem(const QString& name, const QString& value) {
        QUrlQuery query(url_);
        query.addQueryItem(QString::fromUtf8(QUrl::toPercentEncoding(name)),
                           QString::fromUtf8(QUrl::toPercentEncoding(value)));
        url_.setQuery(query);
    }

    QString toString() const { return url_.toString(QUrl::FullyEncoded); }

private:
    QUrl url_;
};

/// The socket that an "smt" URL names.
QString VeskStreamerSmtParamSocketAddress();
/// "true": the player starts with the first data instead of filling a buffer.
QString VeskStreamerSmtParamDisableBuffering();
