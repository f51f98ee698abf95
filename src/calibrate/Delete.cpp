#include "calibrate/Delete.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/Eventually.h"
#include "calibrate/JsonOutput.h"
#include "calibrate/Text.h"

namespace calibrate {
namespace {

std::string question(EndpointClient& client, int slot, const protocol::SlotInfo& info) {
    return "Delete slot " + std::to_string(slot) + " \"" + printable(info.name()) + "\"" +
           (client.activeSlot() == slot ? ", which is active?" : "?");
}

}  // namespace

void deleteSlot(EndpointClient& client, int slot, bool confirmed, const Console& console) {
    checkSlot(slot, client.deviceInfo());
    const auto info = client.slotInfo(slot);
    if (!confirmed && !console.confirm(question(client, slot, info))) {
        console.report("Nothing was deleted.", {{"slot", slot}, {"deleted", false}});
        return;
    }
    client.deleteSlot(slot);
    if (!eventually([&] { return SlotTable::looksEmpty(client.slotInfo(slot)); })) {
        throw DeviceError(DeviceError::Reason::failed,
                          "the device did not delete slot " + std::to_string(slot));
    }
    console.report("Slot " + std::to_string(slot) + " is empty.",
                   {{"slot", slot}, {"deleted", true}});
}

}  // namespace calibrate
