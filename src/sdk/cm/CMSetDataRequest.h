#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/cm/CMReply.h"
#include "sdk/records/VeskValue.h"

/// A client's wish to set a node's value or to activate an action node. Whoever handles it must
/// answer through reply(). Cheap to copy; copies share the reply.
class CMSetDataRequest {
public:
    CMSetDataRequest() = default;
    CMSetDataRequest(CMPath path, VeskValue value, CMReply<QVariant> reply)
        : path_(std::move(path)), value_(std::move(value)), reply_(std::move(reply)) {}

    const CMPath& path() const { return path_; }
    /// The new value, or the arguments of an action.
    const VeskValue& value() const { return value_; }
    const CMReply<QVariant>& reply() const { return reply_; }

private:
    CMPath path_;
    VeskValue value_;
    CMReply<QVariant> reply_;
};
