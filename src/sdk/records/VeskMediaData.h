#pragma once

#include "sdk/records/VeskHash.h"

#include <QVariantList>

/// Who provides a source.
class VeskMetaData : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QString, serviceID, ServiceID)
};

/// Where a source's media come from.
class VeskResource : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QString, mimeType, MimeType)
    VESK_FIELD(QString, uri, Uri)
};

class VeskMediaData : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(VeskMetaData, metaData, MetaData)
    VESK_FIELD(QVariantList, resources, Resources)  // of VeskResource, the preferred one first
};

namespace MimeTypes::Audio {

/// Audio whose format its stream tells.
QString unknown();

}  // namespace MimeTypes::Audio

/// The service under which the module's own stimuli play.
QString VeskService_Dirac_Id();
