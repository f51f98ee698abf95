#include "modules/dirac/common/FilterManager.h"

#include "modules/dirac/Log.h"
#include "modules/dirac/common/FilterManagerRecords.h"
#include "modules/dirac/common/SlotsSettings.h"
#include "sdk/cm/VeskPaths.h"

namespace processing {

namespace {

bool isImageHeld() {
    return readValue(VeskDiracConfigPath()).diracConfig().disableShmUpdate();
}

void setTexts(FilterSlotInfo& info, const std::string& name, const std::string& filterTypeName,
              const std::string& description) {
    info.name = name;
    info.filterTypeName = filterTypeName;
    info.description = description;
}

void setTexts(VeskDiracSlot& record, const FilterSlotInfo& info) {
    record.setName(QString::fromStdString(info.name));
    record.setFilterTypeName(QString::fromStdString(info.filterTypeName));
    record.setDescription(QString::fromStdString(info.description));
}

VeskDiracSlot recordOf(int slot, const FilterSlotInfo& info) {
    VeskDiracSlot record;
    record.setSlotIdx(slot);
    setTexts(record, info);
    record.setCreationTime(info.creationTime);
    return record;
}

/// `records` with those of `slot` described by `info`, in their places.
QVariantList withTexts(QVariantList records, int slot, const FilterSlotInfo& info) {
    for (QVariant& variant : records) {
        VeskDiracSlot record(variant);
        if (record.slotIdx() != slot)
            continue;
        setTexts(record, info);
        variant = record;
    }
    return records;
}

}  // namespace

FilterManager::FilterManager(int availableSlots, int variants, int /*ignored*/)
    : numberOfAvailableSlots(availableSlots), numberOfVariants(variants) {
    reload();
}

void FilterManager::reload() {
    const VeskDiracSlotsList list = readSlotsSettings();
    delayAndGainProcessingEnabled = list.delayGainEnabled();
    const QVariantList records = list.slots_();
    for (const QVariant& record : records)
        reloadSlot(VeskDiracSlot(record));
    setActiveSlot(list.contains(VeskDiracSlotsList::ActiveSlot()) ? list.activeSlot() : -1);
}

void FilterManager::reloadSlot(const VeskDiracSlot& record) {
    const std::string name = record.name().toStdString();
    LOG4CPLUS_TRACE(logger, "FilterManager: reloading slot '" << name << "'");
    createFilterSlotLocal(record.slotIdx(), name, record.filterTypeName().toStdString(),
                          record.description().toStdString(), record.creationTime());
    setFilterForSlotLocal(record.slotIdx(), channelFilters(record, numberOfVariants));
}

bool FilterManager::slotExists(int slot) const {
    return slots.contains(slot);
}

int FilterManager::getNumberOfAvailableSlots() const {
    return numberOfAvailableSlots;
}

int FilterManager::getActiveSlot() const {
    return activeSlot;
}

const FilterSlot* FilterManager::findSlot(int slot) const {
    const auto found = slots.find(slot);
    return found != slots.end() ? &found->second : nullptr;
}

const FilterSlotInfo& FilterManager::getInfoForSlot(int slot) const {
    static const FilterSlotInfo unknown;
    const FilterSlot* const found = findSlot(slot);
    return found ? found->info : unknown;
}

bool FilterManager::createFilterSlot(int slot, const std::string& name,
                                     const std::string& filterTypeName,
                                     const std::string& description, std::int64_t creationTime) {
    if (!createFilterSlotLocal(slot, name, filterTypeName, description, creationTime))
        return false;
    VeskDiracSlotsList settings = readSlotsSettings();
    takeSlot(settings, slot);
    appendSlot(settings, recordOf(slot, slots[slot].info));
    writeSlotsSettings(settings);
    return true;
}

bool FilterManager::createFilterSlotLocal(int slot, const std::string& name,
                                          const std::string& filterTypeName,
                                          const std::string& description,
                                          std::int64_t creationTime) {
    if (slot >= numberOfAvailableSlots)
        return false;
    FilterSlot& created = slots[slot];
    setTexts(created.info, name, filterTypeName, description);
    created.info.creationTime = creationTime;
    created.filters.resize(static_cast<std::size_t>(numberOfVariants));
    return true;
}

void FilterManager::updateSlot(int slot, const std::string& name, const std::string& filterTypeName,
                               const std::string& description) {
    const auto found = slots.find(slot);
    if (found == slots.end()) {
        LOG4CPLUS_ERROR(logger, "Unable to update filter slot, not found: " << slot);
        return;
    }
    setTexts(found->second.info, name, filterTypeName, description);
    VeskDiracSlotsList settings = readSlotsSettings();
    settings.setSlots_(withTexts(settings.slots_(), slot, found->second.info));
    writeSlotsSettings(settings);
}

void FilterManager::deleteSlot(int slot) {
    slots.erase(slot);
    VeskDiracSlotsList settings = readSlotsSettings();
    takeSlot(settings, slot);
    if (activeSlot == slot) {
        setActiveSlot(-1);
        settings.setActiveSlot(-1);
    }
    writeSlotsSettings(settings);
}

void FilterManager::setActiveSlot(int slot) {
    activeSlot = -1;
    if (slot < 0)
        return;
    if (isImageHeld()) {
        LOG4CPLUS_WARN(
            logger, "SHM updates disabled by Dirac config, not setting filter index from server");
        return;
    }
    if (!slotExists(slot)) {
        LOG4CPLUS_ERROR(logger, "FilterManager::setActiveSlot: Filter slot not found: " << slot);
        return;
    }
    activeSlot = slot;
    VeskDiracSlotsList settings = readSlotsSettings();
    settings.setActiveSlot(slot);
    writeSlotsSettings(settings);
    LOG4CPLUS_INFO(logger, "Filter slot set to active: " << slot);
}

void FilterManager::setFilterForSlot(
    int slot, const std::vector<FilterCoefficients>& filters,
    const std::vector<BassControlFilterCoefficients>& bassControlFilters) {
    const auto found = slots.find(slot);
    if (found == slots.end()) {
        LOG4CPLUS_ERROR(logger, "FilterManager::setFilterForSlot: Filter slot not found: " << slot);
        return;
    }
    found->second.filters = filters;
    found->second.bassControlFilters = bassControlFilters;

    VeskDiracSlotsList settings = readSlotsSettings();
    VeskDiracSlot record = takeSlot(settings, slot);
    record.setBcParams(bassControlParams(bassControlFilters));
    record.setParams(channelParams(filters));
    record.setSize(static_cast<qint64>(filters.size()));
    appendSlot(settings, record);
    writeSlotsSettings(settings);
}

void FilterManager::setFilterForSlotLocal(int slot,
                                          const std::vector<FilterCoefficients>& filters) {
    const auto found = slots.find(slot);
    if (found == slots.end()) {
        LOG4CPLUS_ERROR(logger, "FilterManager::setFilterForSlot: Filter slot not found: " << slot);
        return;
    }
    found->second.filters = filters;
}

}  // namespace processing
