#pragma once

#include "sdk/records/VeskValue.h"

#include <QByteArray>

namespace platform {

/// A setting as CBOR (RFC 8949). Records become maps, lists arrays; numbers keep their bits.
/// Throws std::runtime_error when the value holds something that cannot be read back.
QByteArray encodeSetting(const VeskValue& value);

/// The value in `bytes`: maps become QVariantHash, arrays QVariantList, integers 64 bits wide.
/// Throws std::runtime_error, saying what is wrong, when they do not hold exactly one record.
VeskValue decodeSetting(const QByteArray& bytes);

}  // namespace platform
