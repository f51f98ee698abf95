#include "sdk/cm/CMNodesWorker.h"

#include <fstream>

/// A plug-in whose worker is made when somebody writes to the named pipe "hold" in the working
/// directory.
extern "C" Q_DECL_EXPORT CMAbstractWorker* worker_create(void* /*ignored*/,
                                                         const QVariantHash& config) {
    std::ifstream("hold").get();
    return new CMNodesWorker(config, QStringLiteral("Waiting"));
}
