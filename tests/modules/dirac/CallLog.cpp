#include "modules/dirac/CallLog.h"

#include "modules/dirac/StandInMicrophone.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"

CallLog& CallLog::instance() {
    static CallLog log;
    return log;
}

void CallLog::clear() {
    const std::lock_guard lock(mutex_);
    calls_.clear();
}

void CallLog::add(const std::string& call) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(call);
}

std::vector<std::string> CallLog::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

namespace {

CMPath subMixPath() {
    return VeskStreamerDefaultPrefixPath() + VeskStreamerAttributesDisableSubMix();
}

void note(const CMPath& path, const VeskValue& value) {
    CallLog& log = CallLog::instance();
    const VeskDiracSlotsList list = value.diracSlotsList();
    if (path == VeskDiracSlotsRuntimePath())
        log.add(list.filteringEnabled() || list.delayGainEnabled() ? "filter on" : "filter off");
    if (path == VeskTalvorCorbelDiracCalibrationStatusPath())
        log.add(value.bool_() ? "playing" : "not playing");
    if (path == subMixPath())
        log.add(value.bool_() ? "mixing off" : "mixing on");
}

}  // namespace

// The linker leads the module's calls here.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void __real__ZN16CMAbstractWorker8setValueERK6CMPathRK9VeskValueRK7CMReplyI8QVariantE(
    CMAbstractWorker* self, const CMPath& path, const VeskValue& value,
    const CMReply<QVariant>& reply);
void __real__ZN16CMAbstractWorker6invokeERK6CMPathRK8QVariantRK7CMReplyIS3_E(
    CMAbstractWorker* self, const CMPath& path, const QVariant& arguments,
    const CMReply<QVariant>& reply);

void __wrap__ZN16CMAbstractWorker8setValueERK6CMPathRK9VeskValueRK7CMReplyI8QVariantE(
    CMAbstractWorker* self, const CMPath& path, const VeskValue& value,
    const CMReply<QVariant>& reply) {
    note(path, value);
    __real__ZN16CMAbstractWorker8setValueERK6CMPathRK9VeskValueRK7CMReplyI8QVariantE(self, path,
                                                                                     value, reply);
}

void __wrap__ZN16CMAbstractWorker6invokeERK6CMPathRK8QVariantRK7CMReplyIS3_E(
    CMAbstractWorker* self, const CMPath& path, const QVariant& arguments,
    const CMReply<QVariant>& reply) {
    note(path, VeskValue(arguments));
    if (path == VeskPowerManagerResourceRequestPath())
        StandInMicrophone::instance().take(VeskPowerManagerResourceRequest(arguments), reply);
    else
        __real__ZN16CMAbstractWorker6invokeERK6CMPathRK8QVariantRK7CMReplyIS3_E(self, path,
                                                                                arguments, reply);
}
}
// NOLINTEND(bugprone-reserved-identifier)
