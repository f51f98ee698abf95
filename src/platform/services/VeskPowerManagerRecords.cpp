#include "sdk/records/VeskPowerManagerRecords.h"

QString VeskDiracName() {
    return QStringLiteral("Dirac");
}
