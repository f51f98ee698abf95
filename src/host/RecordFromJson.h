#pragma once

#include "host/RecordSchema.h"

#include <QVariant>
#include <nlohmann/json.hpp>

#include <string>

namespace host {

/// The content of `field` from JSON, with the exact type that the record's accessors store.
/// `pointer` is the place of `document`, for ValueError.
QVariant fieldFromJson(const nlohmann::json& document, const RecordField& field,
                       const std::string& pointer);

/// Any document, by what it looks like.
QVariant variantFromJson(const nlohmann::json& document);

}  // namespace host
