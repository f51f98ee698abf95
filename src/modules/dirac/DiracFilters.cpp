#include "modules/dirac/Dirac.h"
#include "modules/dirac/FilterFilePrecache.h"
#include "modules/dirac/ScopedTrace.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/dldsp/Dldsp.h"

#include <QDateTime>

#include <algorithm>

namespace {

/// Whether the configuration that came with the value, or that of the device, keeps the image as it
/// is.
bool isBlockedByConfig(const VeskValue& value) {
    const VeskValue device(CMRoot()->getValue(VeskDiracConfigPath()));
    return value.diracConfig().disableShmUpdate() || device.diracConfig().disableShmUpdate();
}

QVector<char> subSamplerData(const DiracConfiguration& image, std::size_t rate) {
    const auto size = static_cast<int>(image.subSamplerSizes.at(rate));
    QVector<char> data(size);
    std::copy_n(image.subSamplerData.at(rate).begin(), size, data.begin());
    return data;
}

}  // namespace

void Dirac::updateSpeakerConfig(DiracConfiguration& image) const {
    DIRAC_SCOPED_TRACE();
    const QVariantList speakers = diracConfig().speakers();
    const auto count = static_cast<std::size_t>(speakers.size());
    for (std::size_t i = 0; i < std::min(count, image.speakers.size()); ++i) {
        const VeskDiracSpeakerInfo speaker(speakers.at(static_cast<int>(i)));
        image.speakers.at(i) = {speaker.type(), speaker.groupId()};
    }
    image.speakerCount = static_cast<std::uint32_t>(count);
    image.timeStamp = QDateTime::currentMSecsSinceEpoch();
}

/// False when the slot is larger than the image, which must not be used then.
bool Dirac::diracSlotToFilterShm(const VeskDiracSlot& slot, DiracConfiguration& image) {
    DIRAC_SCOPED_TRACE();
    const auto excess = slotImages.fill(slot, image);
    if (excess)
        LOG4CPLUS_ERROR(logger, "Filter slot " << slot.slotIdx()
                                               << " does not fit the DSP's image: " << *excess);
    return !excess;
}

/// The stored slots are read fresh: the item may be behind what the runtime slots already hold.
void Dirac::precacheAllFilters() {
    DIRAC_SCOPED_TRACE();
    const QVariantList slotEntries = storedSlots().slots_();
    LOG4CPLUS_DEBUG(logger, "Precaching slots of count: " << slotEntries.size());
    precacheMap.clear();
    creationTimeMap.clear();
    const auto numSpeakers = static_cast<unsigned>(diracConfig().speakers().size());
    for (const QVariant& entry : slotEntries)
        precacheSlot(VeskDiracSlot(entry), numSpeakers);
    FilterFilePrecache::cleanup(creationTimeMap);
    LOG4CPLUS_DEBUG(logger, "Precached all filters");
}

void Dirac::precacheSlot(const VeskDiracSlot& slot, unsigned numSpeakers) {
    const std::string name = slot.name().toStdString();
    LOG4CPLUS_DEBUG(logger,
                    "Starting precaching for slot " << name << " slot id " << slot.slotIdx());
    const auto image = std::make_unique<DiracConfiguration>();
    if (!diracSlotToFilterShm(slot, *image)) {
        // Looked at once: it has no data and is never published.
        creationTimeMap[slot.slotIdx()] = slot.creationTime();
        return;
    }
    for (std::size_t rate = 0; rate < kDiracSubSamplerRates.size(); ++rate)
        precacheRate(slot, rate, numSpeakers, *image);
}

void Dirac::precacheRate(const VeskDiracSlot& slot, std::size_t rate, unsigned numSpeakers,
                         DiracConfiguration& image) {
    const std::string name = slot.name().toStdString();
    const auto sampleRate = static_cast<int>(kDiracSubSamplerRates.at(rate));
    QVector<char> data = FilterFilePrecache::load(slot.slotIdx(), sampleRate, slot.creationTime());
    if (data.isEmpty())
        data = calculate(slot, rate, numSpeakers, image);
    if (data.isEmpty()) {
        LOG4CPLUS_ERROR(logger,
                        "Failed to precache filter data for " << name << " rate: " << sampleRate);
        return;
    }
    precacheMap[slot.slotIdx()][sampleRate] = data;
    creationTimeMap[slot.slotIdx()] = slot.creationTime();
    LOG4CPLUS_DEBUG(logger, "Precached data for " << name << " rate: " << sampleRate << " size "
                                                  << data.size());
}

/// The DSP library's data for one rate, which is also stored for the next start; empty on failure.
QVector<char> Dirac::calculate(const VeskDiracSlot& slot, std::size_t rate, unsigned numSpeakers,
                               DiracConfiguration& image) const {
    const std::uint32_t sampleRate = kDiracSubSamplerRates.at(rate);
    LOG4CPLUS_DEBUG(logger, "Filter data not cached, calculate data for "
                                << slot.name().toStdString() << " rate: " << sampleRate);
    if (!Dldsp::precacheSsFilterData(image, sampleRate, numSpeakers,
                                     DiracLimits::subSamplerBytes)) {
        LOG4CPLUS_ERROR(logger, "Failed to precache sub sampler filter data");
        return {};
    }
    const QVector<char> data = subSamplerData(image, rate);
    FilterFilePrecache::store(slot.slotIdx(), static_cast<int>(sampleRate), slot.creationTime(),
                              data);
    return data;
}

void Dirac::on_slotsRuntime_changed(const VeskValue& value) {
    DIRAC_SCOPED_TRACE();
    LOG4CPLUS_DEBUG(logger, "Runtime slots changed");
    if (isBlockedByConfig(value)) {
        LOG4CPLUS_WARN(logger, "Slot change blocked by config");
        return;
    }
    auto image = std::make_unique<DiracConfiguration>();
    updateSpeakerConfig(*image);

    VeskDiracSlotsList list = value.diracSlotsList();
    if (!areAllPrecached(list)) {
        LOG4CPLUS_DEBUG(logger, "Erasing and precaching filters because change was detected");
        precacheAllFilters();
    }
    slotImages.retain(list);
    if (!list.contains(VeskDiracSlotsList::ActiveSlot()))
        list.setActiveSlot(kNoSlot);
    LOG4CPLUS_DEBUG(logger, "Filtering enabled: " << list.filteringEnabled()
                                                  << " active filter: " << list.activeSlot());
    if (!populate(*image, list)) {
        image = std::make_unique<DiracConfiguration>();
        updateSpeakerConfig(*image);
    }
    segment->publish(*image);
}

/// Looks at every slot, so that the log names each that changed.
bool Dirac::areAllPrecached(const VeskDiracSlotsList& list) const {
    const QVariantList slotEntries = list.slots_();
    return std::count_if(slotEntries.begin(), slotEntries.end(), [this](const QVariant& entry) {
               return !isPrecached(VeskDiracSlot(entry));
           }) == 0;
}

bool Dirac::isPrecached(const VeskDiracSlot& slot) const {
    const auto stored = creationTimeMap.find(slot.slotIdx());
    if (stored == creationTimeMap.end()) {
        LOG4CPLUS_DEBUG(logger, "index is not precached " << slot.slotIdx());
        return false;
    }
    if (*stored != slot.creationTime()) {
        LOG4CPLUS_DEBUG(logger, "Creation time for filter "
                                    << slot.name().toStdString() << " differs from "
                                    << slot.creationTime() << " to " << *stored);
        return false;
    }
    return true;
}

/// Fills the active slot into the image and ends the bypass, unless filtering is off. False when
/// the slot is larger than the image, which must not be used then.
bool Dirac::populate(DiracConfiguration& image, const VeskDiracSlotsList& list) {
    const int active = list.activeSlot();
    if (!list.filteringEnabled() || active == kNoSlot)
        return true;
    image.bypass = 0;
    const QVariantList slotEntries = list.slots_();
    for (const QVariant& entry : slotEntries) {
        const VeskDiracSlot slot(entry);
        if (slot.slotIdx() != active)
            continue;
        LOG4CPLUS_INFO(logger, "Populating filter with name " << slot.name().toStdString()
                                                              << " id: " << active);
        if (!diracSlotToFilterShm(slot, image))
            return false;
        populatePrecached(image, slot);
    }
    return true;
}

void Dirac::populatePrecached(DiracConfiguration& image, const VeskDiracSlot& slot) const {
    const auto data = precacheMap.value(slot.slotIdx());
    for (std::size_t rate = 0; rate < kDiracSubSamplerRates.size(); ++rate)
        populateRate(image, slot, rate,
                     data.value(static_cast<int>(kDiracSubSamplerRates.at(rate))));
}

void Dirac::populateRate(DiracConfiguration& image, const VeskDiracSlot& slot, std::size_t rate,
                         const QVector<char>& data) {
    const std::string name = slot.name().toStdString();
    const std::uint32_t sampleRate = kDiracSubSamplerRates.at(rate);
    auto& block = image.subSamplerData.at(rate);
    if (data.isEmpty()) {
        LOG4CPLUS_WARN(logger,
                       "Missing precached data for filter " << name << " rate " << sampleRate);
    } else if (static_cast<std::size_t>(data.size()) > block.size()) {
        LOG4CPLUS_WARN(logger, "Precached data larger than static array "
                                   << name << " rate " << sampleRate << " size " << data.size());
    } else {
        std::copy(data.begin(), data.end(), block.begin());
        image.subSamplerSizes.at(rate) = static_cast<std::uint32_t>(data.size());
        LOG4CPLUS_DEBUG(logger, "Filled precached into shm, name: "
                                    << name << " rate " << sampleRate << " size " << data.size());
    }
}
