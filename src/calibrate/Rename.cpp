#include "calibrate/Rename.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/Eventually.h"
#include "calibrate/JsonOutput.h"
#include "calibrate/Text.h"

namespace calibrate {
namespace {

protocol::SlotInfoUpdate merge(const RenameOptions& options, const protocol::SlotInfo& present) {
    protocol::SlotInfoUpdate update;
    update.set_slot(options.slot);
    update.set_name(options.name.value_or(present.name()));
    update.set_filter_type_name(options.type.value_or(present.filter_type_name()));
    update.set_description(options.description.value_or(present.description()));
    return update;
}

bool shows(const protocol::SlotInfo& slot, const protocol::SlotInfoUpdate& update) {
    return slot.name() == update.name() && slot.filter_type_name() == update.filter_type_name() &&
           slot.description() == update.description();
}

}  // namespace

void rename(EndpointClient& client, const RenameOptions& options, const Console& console) {
    checkSlot(options.slot, client.deviceInfo());
    const auto update = merge(options, client.slotInfo(options.slot));
    client.updateSlotInfo(update);
    if (!eventually([&] { return shows(client.slotInfo(options.slot), update); })) {
        throw DeviceError(DeviceError::Reason::failed, "the device did not take the texts: slot " +
                                                           std::to_string(options.slot) +
                                                           " is empty; upload a filter first");
    }
    console.report(
        "Slot " + std::to_string(options.slot) + " is now \"" + printable(update.name()) + "\".",
        {{"slot", options.slot},
         {"name", update.name()},
         {"type", update.filter_type_name()},
         {"description", update.description()}});
}

}  // namespace calibrate
