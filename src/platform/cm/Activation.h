#pragma once

#include "sdk/cm/CMSetDataRequest.h"

#include <QObject>

namespace platform {

/// The way of a request to an action's receiver: the connection ends with the receiver, in
/// whatever thread it is destroyed.
class Activation : public QObject {
    Q_OBJECT

Q_SIGNALS:
    void requested(const CMSetDataRequest& request);
};

}  // namespace platform
