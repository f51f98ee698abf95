#include "calibrate/Activate.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/Eventually.h"
#include "calibrate/JsonOutput.h"
#include "calibrate/Text.h"

namespace calibrate {
namespace {

[[noreturn]] void reportRefusal(EndpointClient& client, int slot) {
    const bool empty = SlotTable::looksEmpty(client.slotInfo(slot));
    throw DeviceError(DeviceError::Reason::failed,
                      "the device did not activate slot " + std::to_string(slot) +
                          (empty ? ": it is empty; upload a filter first"
                                 : ": its configuration may forbid to change the filter"));
}

void switchFiltering(EndpointClient& client, protocol::OperationMode mode, bool on) {
    mode.set_filtering(on);
    client.setOperationMode(mode);
    if (!eventually([&] { return client.operationMode().filtering() == on; })) {
        throw DeviceError(
            DeviceError::Reason::failed,
            std::string("the device did not switch its correction ") + (on ? "on" : "off"));
    }
}

}  // namespace

void activateSlot(EndpointClient& client, int slot) {
    const int previous = client.activeSlot();
    client.setActiveSlot(slot);
    if (!eventually([&] { return client.activeSlot() == slot; })) {
        // A refusal makes some devices forget which slot is active.
        client.setActiveSlot(previous);
        reportRefusal(client, slot);
    }
    const auto mode = ifOffered([&] { return client.operationMode(); });
    if (mode && !mode->filtering())
        switchFiltering(client, *mode, true);
}

void activate(EndpointClient& client, int slot, const Console& console) {
    checkSlot(slot, client.deviceInfo());
    activateSlot(client, slot);
    console.report("Slot " + std::to_string(slot) + " \"" +
                       printable(client.slotInfo(slot).name()) + "\" is active.",
                   {{"active_slot", slot}});
}

void activateOff(EndpointClient& client, const Console& console) {
    switchFiltering(client, client.operationMode(), false);
    console.report("Correction is off.", {{"filtering", false}});
}

}  // namespace calibrate
