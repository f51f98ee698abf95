#pragma once

#include <QHash>
#include <QString>

/// Address of one node of the configuration tree, for example "dirac/slots". A value type.
class CMPath {
public:
    CMPath() = default;
    explicit CMPath(QString text) : text_(std::move(text)) {}

    const QString& toString() const { return text_; }
    bool isEmpty() const { return text_.isEmpty(); }

    /// The node `rest` below `prefix`: both texts joined by "/".
    friend CMPath operator+(const CMPath& prefix, const CMPath& rest) {
        return CMPath(prefix.text_ + QLatin1Char('/') + rest.text_);
    }

    friend bool operator==(const CMPath& a, const CMPath& b) { return a.text_ == b.text_; }
    friend bool operator!=(const CMPath& a, const CMPath& b) { return a.text_ != b.text_; }
    friend bool operator<(const CMPath& a, const CMPath& b) { return a.text_ < b.text_; }
    friend uint qHash(const CMPath& path, uint seed = 0) { return ::qHash(path.text_, seed); }

private:
    QString text_;
};
