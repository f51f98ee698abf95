#pragma once

#include "sdk/cm/CMNode.h"

namespace platform {

/// Refuses whatever clients write to a node that only shows something.
inline void makeReadOnly(CMValueNode* node) {
    node->doSetValidate([](const CMSetDataRequest& request) {
        request.reply().setError(
            CMError(QStringLiteral("ReadOnly"),
                    QStringLiteral("Only to be read: ") + request.path().toString()));
    });
}

}  // namespace platform
