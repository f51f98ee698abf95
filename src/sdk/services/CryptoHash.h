#pragma once

#include <QByteArray>
#include <QCryptographicHash>

/// A message digest.
class CryptoHash {
public:
    enum Algorithm {
        Sha1 = 1,  ///< FIPS 180-4, 20 bytes
    };

    explicit CryptoHash(Algorithm algorithm);

    void update(const QByteArray& data);
    /// Writes the digest; the object is used up.
    void finalize(QByteArray* digest);

private:
    QCryptographicHash hash_;
};
