#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/records/VeskMediaData.h"
#include "sdk/records/VeskValue.h"
#include "sdk/services/TrString.h"

/// A source that the player can play, or a row of a list: what a user interface shows of it.
class VeskRoles : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(int, type, Type)  // 3: audio
    VESK_FIELD(TrString, title, Title)
    VESK_FIELD(VeskValue, value, Value)
    VESK_FIELD(VeskMediaData, mediaData, MediaData)  // what to play
};

/// How a user interface edits a node's value.
class VeskEdit : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(int, type, Type)  // 1: choose one of the rows at enumPath

    static QString EnumPath() { return QStringLiteral("enumPath"); }
    CMPath enumPath() const { return CMPath(value(EnumPath()).toString()); }
    void setEnumPath(const CMPath& path) { insert(EnumPath(), path.toString()); }
};
