#include "calibrate/Slots.h"

#include "calibrate/JsonOutput.h"
#include "calibrate/Text.h"
#include "calibrate/TextTable.h"

namespace calibrate {
namespace {

std::string stateText(const SlotTable& table, int slot) {
    if (slot != table.active)
        return SlotTable::looksEmpty(table.slots[static_cast<std::size_t>(slot)]) ? "empty" : "";
    return table.filtering.value_or(true) ? "active" : "active, correction off";
}

/// The client that wrote a slot chose the unit of its time; ours is milliseconds.
std::string creationText(const protocol::SlotInfo& slot) {
    const std::string time = utcTime(slot.creation_time());
    return time.empty() && slot.creation_time() != 0 ? std::to_string(slot.creation_time()) : time;
}

}  // namespace

void printSlots(std::ostream& out, const SlotTable& table, const std::string& indent) {
    TextTable text({"Slot", "State", "Name", "Type", "Created", "Description"});
    for (std::size_t i = 0; i < table.slots.size(); ++i) {
        const auto& slot = table.slots[i];
        text.add({std::to_string(i), stateText(table, static_cast<int>(i)), printable(slot.name()),
                  printable(slot.filter_type_name()), creationText(slot),
                  printable(slot.description())});
    }
    text.print(out, indent);
    if (table.active < 0)
        out << indent << "No slot is active.\n";
}

void slots(EndpointClient& client, const Console& console) {
    const SlotTable table = readSlots(client, client.deviceInfo());
    if (console.json())
        console.print(toJson(table));
    else
        printSlots(console.out(), table, "");
}

}  // namespace calibrate
