#include "modules/dirac/Dirac.h"
#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"
#include "modules/dirac/Truncation.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/records/VeskPlayerRecords.h"
#include "sdk/services/SystemAttenuationProxy.h"

#include <array>

namespace {

constexpr std::array kStimuliGainPaths{
    &VeskTalvorCorbelDiracStimuliGainDB0, &VeskTalvorCorbelDiracStimuliGainDB1,
    &VeskTalvorCorbelDiracStimuliGainDB2, &VeskTalvorCorbelDiracStimuliGainDB3};

QString serviceOf(const VeskPlayLogicData& data) {
    return data.mediaRoles().mediaData().metaData().serviceID();
}

}  // namespace

void Dirac::on_attenuation_changed(double serviceAttenaution) {
    attenuation = serviceAttenaution;
}

void Dirac::setAttenuation(double value) {
    LOG4CPLUS_INFO(
        logger, "Enter " << dbglog_scopedFunction(__PRETTY_FUNCTION__, "Dirac") << ": " << value);
    // Not waiting for the proxy, whose report of what was applied follows.
    attenuation = value;
    // By name, so that it runs in the proxy's own thread; without a proxy nothing is called.
    QMetaObject::invokeMethod(attenuationProxy.load(), "setAttenuation", Qt::AutoConnection,
                              Q_ARG(double, value));
}

/// As stored: the item may be behind what a client has just set.
bool Dirac::getFilteringEnabled() const {
    return storedSlots().filteringEnabled();
}

void Dirac::setSpeakerGain(int channel, double gain) {
    DIRAC_SCOPED_TRACE();
    LOG4CPLUS_INFO(logger, "set speaker gain index: " << channel << " att: " << gain);
    if (channel < 0 || channel >= static_cast<int>(kStimuliGainPaths.size())) {
        LOG4CPLUS_ERROR(logger, "Unsuported channe number" << channel);
        return;
    }
    const CMPath path = kStimuliGainPaths.at(static_cast<std::size_t>(channel))();
    CMRoot()->setValue(path, VeskValue::ofI32(truncated(gain)), {});
}

void Dirac::on_playerData_changed(const VeskValue& newValue, const VeskValue& oldValue) {
    const VeskPlayLogicData newData(newValue.hash());
    const VeskPlayLogicData oldData(oldValue.hash());
    DIRAC_SCOPED_TRACE(newData);
    const bool isOurs = serviceOf(newData) == VeskService_Dirac_Id();
    const bool wasOurs = serviceOf(oldData) == VeskService_Dirac_Id();
    if (!isOurs && !wasOurs)
        return;
    // Whatever plays now, our playback has ended.
    const VeskPlayLogicState::Enum state = isOurs ? newData.state() : VeskPlayLogicState::Stopped;
    if (state != oldData.state() && rpcHandler)
        rpcHandler->notifyPlayerStateChanged(state);
}

/// The MAC is read when the UUID is formed; it is watched so that it is known by then.
void Dirac::on_mac_changed(const VeskValue& /*value*/) {
    DIRAC_SCOPED_TRACE();
}
