#pragma once

#include "modules/dirac/common/FilterManager.h"
#include "platform/Platform.h"
#include "platform/cm/Tree.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

/// A filter manager of eight slots and two variants on a device of its own.
class FilterManagerFixture : public testing::Test {
protected:
    static constexpr int kSlots = 8;
    static constexpr int kVariants = 2;

    FilterManagerFixture() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        device.tree().provide({VeskDiracSlotsRuntimePath(), VeskValue()});
    }

    static VeskValue valueAt(const CMPath& path) { return VeskValue(CMRoot()->getValue(path)); }
    static void setValueAt(const CMPath& path, const VeskValue& value) {
        CMRoot()->setValue(path, value, CMReply<QVariant>());
    }

    static VeskDiracSlotsList settings() {
        return valueAt(VeskDiracSlotsSettingsPath()).diracSlotsList();
    }
    static void setSettings(const VeskDiracSlotsList& list) {
        setValueAt(VeskDiracSlotsSettingsPath(), VeskValue::of(list));
    }
    static void store(const QList<VeskDiracSlot>& records) {
        QVariantList list;
        for (const VeskDiracSlot& record : records)
            list.append(record);
        VeskDiracSlotsList changed = settings();
        changed.setSlots_(list);
        setSettings(changed);
    }
    static void storeActiveSlot(int slot) {
        VeskDiracSlotsList list = settings();
        list.setActiveSlot(slot);
        setSettings(list);
    }
    /// A device whose image must not change.
    static void holdImage() {
        VeskDiracConfig config = valueAt(VeskDiracConfigPath()).diracConfig();
        config.setDisableShmUpdate(true);
        setValueAt(VeskDiracConfigPath(), VeskValue::of(config));
    }

    static std::vector<int> storedSlots() {
        std::vector<int> numbers;
        const QVariantList records = settings().slots_();
        for (const QVariant& record : records)
            numbers.push_back(VeskDiracSlot(record).slotIdx());
        return numbers;
    }
    /// The record of `slot`; empty when there is none.
    static VeskDiracSlot storedRecord(int slot) {
        const QVariantList records = settings().slots_();
        for (const QVariant& record : records) {
            if (VeskDiracSlot(record).slotIdx() == slot)
                return VeskDiracSlot(record);
        }
        return VeskDiracSlot();
    }

    static processing::FilterManager makeManager() { return {kSlots, kVariants, 0}; }

    platform::Platform device{platform::DeviceDescription()};
    LogCapture log{"Dirac"};
};
