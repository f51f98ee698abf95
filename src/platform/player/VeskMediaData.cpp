#include "sdk/records/VeskMediaData.h"

#include "sdk/records/VeskUrl.h"

QString MimeTypes::Audio::unknown() {
    return QStringLiteral("audio/unknown");
}

QString VeskService_Dirac_Id() {
    return QStringLiteral("dirac");
}

QString VeskStreamerSmtParamSocketAddress() {
    return QStringLiteral("socketAddress");
}

QString VeskStreamerSmtParamDisableBuffering() {
    return QStringLiteral("disableBuffering");
}
