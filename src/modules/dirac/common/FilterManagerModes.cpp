#include "modules/dirac/Log.h"
#include "modules/dirac/ScopedTrace.h"
#include "modules/dirac/common/FilterManager.h"
#include "modules/dirac/common/SlotsSettings.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"

// The processing modes: which stages of the correction are on, and what the device shows of it.

namespace processing {

namespace {

void writeRuntime(const VeskDiracSlotsList& list) {
    writeValue(VeskDiracSlotsRuntimePath(), VeskValue::of(list));
}

}  // namespace

bool FilterManager::isDelayAndGainProcessingEnabled() const {
    return delayAndGainProcessingEnabled;
}

void FilterManager::enableProcessing(bool delayAndGain, bool filtering) {
    // The backups are looked at, whatever they hold.
    static_cast<void>(readValue(VeskDiracFilteringBackupPath()).bool_());
    static_cast<void>(readValue(VeskDiracGainAndDelayBackupPath()).bool_());

    delayAndGainProcessingEnabled = delayAndGain;
    VeskDiracSlotsList settings = readSlotsSettings();
    settings.setDelayGainEnabled(delayAndGain);
    settings.setFilteringEnabled(filtering);
    writeValue(VeskTalvorCorbelFilteringEnabled(), VeskValue::ofBool(filtering));
    writeSlotsSettings(settings);
}

void FilterManager::disableFilter() {
    DIRAC_SCOPED_TRACE();
    VeskDiracSlotsList bypassed = readSlotsSettings();
    bypassed.setDelayGainEnabled(false);
    bypassed.setFilteringEnabled(false);
    writeRuntime(bypassed);
}

void FilterManager::enableFilter() {
    DIRAC_SCOPED_TRACE();
    writeRuntime(readSlotsSettings());
}

void FilterManager::playbackLoopActive(bool active) {
    DIRAC_SCOPED_TRACE(active);
    LOG4CPLUS_INFO(logger,
                   (active ? "Calibration playback started" : "Calibration playback stopped"));
    writeValue(VeskTalvorCorbelDiracCalibrationStatusPath(), VeskValue::ofBool(active));
}

void FilterManager::clientConnected(bool connected) {
    LOG4CPLUS_INFO(logger, "Dirac Live was " << (connected ? "connected" : "disconnected"));
    const auto reply = CMReply<QVariant>::create();
    CMRoot()->setValue(VeskTalvorCorbelDiracClientStatusPath(), VeskValue::ofBool(connected),
                       reply);
    reply.waitForFinished();
}

}  // namespace processing
