#pragma once

#include "modules/dirac/common/BassControlFilterCoefficients.h"
#include "modules/dirac/common/FilterCoefficients.h"
#include "sdk/records/VeskDiracRecords.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace processing {

/// What describes a slot; texts in UTF-8.
struct FilterSlotInfo {
    std::string name;
    std::string filterTypeName;
    std::string description;
    std::int64_t creationTime{0};  ///< in the client's unit
};

/// One slot with its design.
struct FilterSlot {
    std::vector<FilterCoefficients> filters;  ///< one a variant
    std::vector<BassControlFilterCoefficients> bassControlFilters;
    FilterSlotInfo info;
};

/// The device's filter slots. Keeps them in memory and writes every change into the slots settings
/// of the configuration tree, which it also starts from. Settings are read before each change and
/// never kept; except where stated, writes are not awaited.
///
/// Not thread-safe: calls must not overlap.
class FilterManager {
public:
    /// Takes the slots over from the settings. Slots are numbered below `availableSlots`; each has
    /// a filter for each of the `variants`. The third argument does not matter. A
    /// stored slot whose lists are shorter than its size says ends the process. The bass control of
    /// a stored slot is not read back.
    FilterManager(int availableSlots, int variants, int ignored);

    // What is there.
    bool slotExists(int slot) const;
    int getNumberOfAvailableSlots() const;
    int getActiveSlot() const;  ///< -1: none
    bool isDelayAndGainProcessingEnabled() const;
    /// Null for an unknown slot; valid until the slot is deleted.
    const FilterSlot* findSlot(int slot) const;
    /// Valid until the slot is deleted; for an unknown slot one empty record.
    const FilterSlotInfo& getInfoForSlot(int slot) const;

    // Slots.
    /// Describes a new slot, or an existing one anew: its stored record then loses its design, the
    /// one in memory stays. False when `slot` is not below the number of slots.
    bool createFilterSlot(int slot, const std::string& name, const std::string& filterTypeName,
                          const std::string& description, std::int64_t creationTime);
    /// The same in memory only.
    bool createFilterSlotLocal(int slot, const std::string& name, const std::string& filterTypeName,
                               const std::string& description, std::int64_t creationTime);
    void updateSlot(int slot, const std::string& name, const std::string& filterTypeName,
                    const std::string& description);
    void deleteSlot(int slot);
    /// Chooses the slot that filters. An unknown slot, a negative one, or a device that holds its
    /// image, leaves none active here and the settings as they are.
    void setActiveSlot(int slot);

    // Designs.
    /// Stores a design in an existing slot and in its record. A bass-control design must have cells
    /// in section 4 and none above; any other ends the process. Throws std::out_of_range for a cell
    /// that has not what its section carries; the design is then in memory only.
    void setFilterForSlot(int slot, const std::vector<FilterCoefficients>& filters,
                          const std::vector<BassControlFilterCoefficients>& bassControlFilters);
    /// Stores the channel filters in memory only.
    void setFilterForSlotLocal(int slot, const std::vector<FilterCoefficients>& filters);

    // Processing modes.
    void enableProcessing(bool delayAndGain, bool filtering);
    /// Lifts what disableFilter() did: the runtime slots are a copy of the settings again.
    void enableFilter();
    /// Bypasses both stages while stimuli play; the settings keep the user's choice.
    void disableFilter();
    void playbackLoopActive(bool active);
    /// Waits until the device shows the status.
    void clientConnected(bool connected);

private:
    void reload();
    void reloadSlot(const VeskDiracSlot& record);

    std::map<int, FilterSlot> slots;
    const int numberOfAvailableSlots;
    const int numberOfVariants;
    int activeSlot{-1};
    bool delayAndGainProcessingEnabled{false};
};

}  // namespace processing
