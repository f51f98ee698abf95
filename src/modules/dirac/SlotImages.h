#pragma once

#include "sdk/dldsp/DiracConfiguration.h"
#include "sdk/records/VeskDiracRecords.h"

#include <map>
#include <memory>
#include <optional>
#include <string>

/// The designs of the slots as the DSP's image holds them, each converted once.
///
/// A design in the configuration tree is a hundred thousand small pieces all over the memory; to
/// read them again for each choice would take as long as all else of it. A design counts as the one
/// converted when its record still shares its lists with that one: then nobody has changed it.
class SlotImages {
public:
    /// Like convertSlot(), into a configuration without filters.
    std::optional<std::string> fill(const VeskDiracSlot& slot, DiracConfiguration& configuration);

    /// Forgets the slots that are not in this list.
    void retain(const VeskDiracSlotsList& list);

private:
    struct Image {
        Image(const VeskDiracSlot& slot, const DiracConfiguration& configuration);
        bool isOf(const VeskDiracSlot& slot) const;
        void copyTo(DiracConfiguration& configuration) const;

        const QVariantList params;
        const QVariantList bcParams;
        const decltype(DiracConfiguration::groups) groups;
        const decltype(DiracConfiguration::bassControl) bassControl;
        const decltype(DiracConfiguration::bassControlPresent) bassControlPresent;
    };

    std::map<int, std::unique_ptr<const Image>> images_;  // by slot index
};
