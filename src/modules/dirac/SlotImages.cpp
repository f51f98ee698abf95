#include "modules/dirac/SlotImages.h"

#include "modules/dirac/SlotConversion.h"

#include <QSet>

std::optional<std::string> SlotImages::fill(const VeskDiracSlot& slot,
                                            DiracConfiguration& configuration) {
    auto& image = images_[slot.slotIdx()];
    if (image && image->isOf(slot)) {
        image->copyTo(configuration);
        return std::nullopt;
    }
    image.reset();
    auto excess = convertSlot(slot, configuration);
    if (!excess)
        image = std::make_unique<const Image>(slot, configuration);
    return excess;
}

void SlotImages::retain(const VeskDiracSlotsList& list) {
    QSet<int> present;
    const QVariantList slotEntries = list.slots_();
    for (const QVariant& entry : slotEntries)
        present.insert(VeskDiracSlot(entry).slotIdx());
    std::erase_if(images_, [&](const auto& image) { return !present.contains(image.first); });
}

SlotImages::Image::Image(const VeskDiracSlot& slot, const DiracConfiguration& configuration)
    : params(slot.params()),
      bcParams(slot.bcParams()),
      groups(configuration.groups),
      bassControl(configuration.bassControl),
      bassControlPresent(configuration.bassControlPresent) {
}

bool SlotImages::Image::isOf(const VeskDiracSlot& slot) const {
    return params.isSharedWith(slot.params()) && bcParams.isSharedWith(slot.bcParams());
}

void SlotImages::Image::copyTo(DiracConfiguration& configuration) const {
    configuration.groups = groups;
    configuration.bassControl = bassControl;
    configuration.bassControlPresent = bassControlPresent;
}
