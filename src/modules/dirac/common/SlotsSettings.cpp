#include "modules/dirac/common/SlotsSettings.h"

#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"

#include <QVariantList>

namespace processing {

VeskValue readValue(const CMPath& path) {
    return VeskValue(CMRoot()->getValue(path));
}

void writeValue(const CMPath& path, const VeskValue& value) {
    CMRoot()->setValue(path, value, CMReply<QVariant>());
}

VeskDiracSlotsList readSlotsSettings() {
    return readValue(VeskDiracSlotsSettingsPath()).diracSlotsList();
}

void writeSlotsSettings(const VeskDiracSlotsList& list) {
    writeValue(VeskDiracSlotsSettingsPath(), VeskValue::of(list));
}

VeskDiracSlot takeSlot(VeskDiracSlotsList& list, int slot) {
    VeskDiracSlot taken;
    QVariantList others;
    const QVariantList records = list.slots_();
    for (const QVariant& variant : records) {
        const VeskDiracSlot record(variant);
        if (record.slotIdx() == slot)
            taken = record;
        else
            others.append(variant);
    }
    list.setSlots_(others);
    return taken;
}

void appendSlot(VeskDiracSlotsList& list, const VeskDiracSlot& record) {
    QVariantList records = list.slots_();
    records.append(record);
    list.setSlots_(records);
}

}  // namespace processing
