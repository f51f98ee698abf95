#include "sdk/cm/CMAbstractWorker.h"

#include <stdexcept>

/// A plug-in whose worker cannot be made.
extern "C" Q_DECL_EXPORT CMAbstractWorker* worker_create(void* /*ignored*/,
                                                         const QVariantHash& /*config*/) {
    throw std::runtime_error("no such weather");
}
