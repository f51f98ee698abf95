#include "sdk/services/CryptoHash.h"

namespace {

QCryptographicHash::Algorithm digestOf(CryptoHash::Algorithm algorithm) {
    switch (algorithm) {
        case CryptoHash::Sha1:
            return QCryptographicHash::Sha1;
    }
    qFatal("CryptoHash: unknown algorithm %d", static_cast<int>(algorithm));
}

}  // namespace

CryptoHash::CryptoHash(Algorithm algorithm) : hash_(digestOf(algorithm)) {
}

void CryptoHash::update(const QByteArray& data) {
    hash_.addData(data);
}

void CryptoHash::finalize(QByteArray* digest) {
    *digest = hash_.result();
}
