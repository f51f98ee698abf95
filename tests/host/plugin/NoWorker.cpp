#include "sdk/cm/CMAbstractWorker.h"

/// A plug-in that makes no worker.
extern "C" Q_DECL_EXPORT CMAbstractWorker* worker_create(void* /*ignored*/,
                                                         const QVariantHash& /*config*/) {
    return nullptr;
}
