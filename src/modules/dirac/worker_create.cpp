#include "modules/dirac/Dirac.h"

/// The entry point of the module: makes its worker, which belongs to the caller, in the thread that
/// it will run in. The first argument is not used.
extern "C" Q_DECL_EXPORT CMAbstractWorker* worker_create(void* /*ignored*/,
                                                         const QVariantHash& config) {
    return new Dirac(config);
}
