#include "calibrate/DesignFit.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/FilterCapacity.h"
#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace calibrate {
namespace {

constexpr double kSameRate = 0.5;   // Hz
constexpr double kRounding = 1e-3;  // dB

/// Compares a design with the device that it is meant for.
class Fit {
public:
    Fit(design::DeviceDesign design, std::string file, const DesignCapacity& capacity)
        : design_(std::move(design)),
          file_(std::move(file)),
          speakers_(capacity.speakers),
          variants_(capacity.variants),
          bassSections_(capacity.bassSections) {}

    design::DeviceDesign result(std::vector<std::string>& warnings) {
        checkSpeakers();
        warnOfNames(warnings);
        takeVariants();
        for (std::size_t i = 0; i < variants_.size(); ++i)
            checkVariant(i);
        if (!design_.bassCells.empty())
            checkCellCounts();
        for (std::size_t i = 0; i < speakers_.size(); ++i)
            design_.speakers[i].name = speakers_[i].name();
        return std::move(design_);
    }

private:
    [[noreturn]] void refuse(const std::string& why) const { throw BadInput(file_ + ": " + why); }

    void checkSpeakers() const {
        if (design_.speakers.size() != speakers_.size()) {
            refuse("is a design for " + counted(design_.speakers.size(), "speaker") +
                   ", but the device has " + std::to_string(speakers_.size()));
        }
        for (std::size_t i = 0; i < speakers_.size(); ++i)
            checkKind(i);
        if (!design_.bassCells.empty() && !std::ranges::any_of(speakers_, isSubwoofer))
            refuse("has bass management, but the device has no subwoofer");
    }

    /// A name that is that of another speaker.
    void warnOfNames(std::vector<std::string>& warnings) const {
        for (std::size_t i = 0; i < speakers_.size(); ++i) {
            const auto& name = design_.speakers[i].name;
            const auto other = std::ranges::find(speakers_, name, &protocol::SpeakerInfo::name);
            if (name == speakers_[i].name() || other == speakers_.end())
                continue;
            warnings.push_back(file_ + ": the filter of " + speakerText(i, name) + " goes to " +
                               speakerText(i, speakers_[i].name()) +
                               ", because they count in order; \"" + printable(name) +
                               "\" is the device's speaker " +
                               std::to_string(other - speakers_.begin()));
        }
    }

    void checkKind(std::size_t index) const {
        const auto& speaker = design_.speakers[index];
        if (speaker.subwoofer == isSubwoofer(speakers_[index]))
            return;
        const std::string number = std::to_string(index);
        if (speaker.subwoofer) {
            refuse("its " + speakerText(index, speaker.name) + " is a subwoofer, the device's " +
                   speakerText(index, speakers_[index].name()) +
                   " is none: give 'design' the speakers in the device's order");
        }
        refuse("the device's " + speakerText(index, speakers_[index].name()) +
               " is a subwoofer: design with --subwoofer " + number);
    }

    /// Puts the filters into the order of the device's variants.
    void takeVariants() {
        const auto available = design_.speakers.front().filters;
        std::vector<std::size_t> taken;
        for (const auto& variant : variants_)
            taken.push_back(indexOf(static_cast<double>(variant.filter.sample_rate()), available));
        for (auto& speaker : design_.speakers)
            reorder(speaker.filters, taken);
        if (!design_.bassCells.empty())
            reorder(design_.bassCells, taken);
    }

    std::size_t indexOf(double rate, const std::vector<design::ParallelFilter>& filters) const {
        const auto found = std::ranges::find_if(filters, [&](const auto& filter) {
            return std::abs(filter.sampleRate - rate) < kSameRate;
        });
        if (found == filters.end()) {
            refuse("has no filters at " + hertz(rate) +
                   ", at which the device filters too: design with --rate " + fixed(rate, 0) +
                   " as well");
        }
        return static_cast<std::size_t>(found - filters.begin());
    }

    template <class Item>
    static void reorder(std::vector<Item>& items, const std::vector<std::size_t>& order) {
        std::vector<Item> result;
        result.reserve(order.size());
        for (const auto index : order)
            result.push_back(items[index]);
        items = std::move(result);
    }

    void checkVariant(std::size_t index) const {
        const auto& capacity = variants_[index];
        for (std::size_t i = 0; i < design_.speakers.size(); ++i) {
            const auto& speaker = design_.speakers[i];
            checkFilter(speakerText(i, speaker.name), speaker.filters[index], capacity.filter);
            if (design_.bassCells.empty())
                checkAlignment(speakerText(i, speaker.name), speaker.alignment, capacity.alignment);
        }
        if (design_.bassCells.empty())
            return;
        for (const auto& cell : design_.bassCells[index])
            checkCell(cell, capacity);
    }

    void checkFilter(const std::string& speaker, const design::ParallelFilter& filter,
                     const protocol::FIIRInfo& capacity) const {
        const auto check = [&](std::size_t count, std::size_t most, const char* noun) {
            if (count <= most)
                return;
            refuse(speaker + " has " + counted(count, noun) + " at " + hertz(filter.sampleRate) +
                   ", but the device holds " + std::to_string(most) + ": design with --" + noun +
                   "s " + std::to_string(most));
        };
        check(filter.taps.size(), capacity.max_taps(), "tap");
        check(filter.sections.size(), capacity.max_biquads(), "section");
    }

    void checkAlignment(const std::string& speaker, const design::Alignment& alignment,
                        const protocol::DelayGainInfo& capacity) const {
        const auto rate = static_cast<double>(capacity.sample_rate());
        const double longest = capacity.max_delay() / rate;
        if (alignment.delay * rate > capacity.max_delay() + 0.5) {
            refuse(speaker + " is delayed by " + fixed(1000 * alignment.delay, 2) +
                   " ms, but the device delays by " + fixed(1000 * longest, 2) +
                   " ms at most: move the loudspeaker, or design with --no-align");
        }
        checkGain(speaker, alignment.gain, capacity);
    }

    void checkGain(const std::string& what, double gain,
                   const protocol::DelayGainInfo& capacity) const {
        if (std::abs(gain) > static_cast<double>(capacity.max_gain()) + kRounding) {
            refuse(what + " has an alignment of " + decibels(gain) +
                   ", but the device changes the level by " +
                   decibels(static_cast<double>(capacity.max_gain())) +
                   " at most: turn the loudspeaker itself, or design with --no-align");
        }
    }

    static std::string nameOf(const design::BassCell& cell) {
        return "its bass management, in section " + std::to_string(cell.section) + " from " +
               std::to_string(cell.input) + " to " + std::to_string(cell.output) + ",";
    }

    void checkCell(const design::BassCell& cell, const DesignCapacity::Variant& capacity) const {
        const auto& section = bassSections_.at(cell.section);
        if (cell.input >= section.num_inputs() || cell.output >= section.num_outputs()) {
            refuse(nameOf(cell) + " is for another arrangement of speakers; the device has " +
                   counted(section.num_inputs(), "input") + " and " +
                   counted(section.num_outputs(), "output") + " there");
        }
        if (cell.biquads.size() > capacity.bass.max_biquads()) {
            refuse(nameOf(cell) + " has " + counted(cell.biquads.size(), "biquad") +
                   ", but the device holds " + std::to_string(capacity.bass.max_biquads()));
        }
        if (static_cast<unsigned>(cell.delay) > capacity.alignment.max_delay()) {
            refuse(nameOf(cell) + " delays by " +
                   counted(static_cast<std::size_t>(cell.delay), "sample") +
                   ", but the device delays by " + std::to_string(capacity.alignment.max_delay()) +
                   " at most");
        }
        checkGain(nameOf(cell), cell.gain, capacity.alignment);
    }

    /// The protocol does not tell how many cells a section holds; every device holds as many.
    void checkCellCounts() const {
        const std::size_t most = design::BassCapacity().maxCells;
        std::map<unsigned, std::size_t> counts;
        for (const auto& cell : design_.bassCells.front())
            if (++counts[cell.section] > most)
                refuse("has more than " + std::to_string(most) +
                       " cells of bass management in section " + std::to_string(cell.section));
    }

    design::DeviceDesign design_;
    const std::string file_;
    const std::vector<protocol::SpeakerInfo>& speakers_;
    const std::vector<DesignCapacity::Variant>& variants_;
    const std::vector<protocol::SectionInfo>& bassSections_;
};

}  // namespace

DesignCapacity readDesignCapacity(EndpointClient& client, const protocol::DeviceInfo& device) {
    DesignCapacity capacity;
    capacity.speakers = readSpeakers(client, device);
    for (const auto& filter : readFilterVariants(client, capacity.speakers.size())) {
        const int id = static_cast<int>(filter.variant());
        capacity.variants.push_back(
            {filter, client.delayGainInfo(id),
             ifOffered([&] { return client.iirInfo(id); }).value_or(protocol::IIRInfo())});
    }
    if (std::ranges::any_of(capacity.speakers, isSubwoofer))
        for (int section = 0; section < static_cast<int>(design::kBassSections); ++section)
            capacity.bassSections.push_back(client.sectionInfo(section));
    return capacity;
}

design::DeviceDesign fitted(design::DeviceDesign design, const std::string& file,
                            const DesignCapacity& capacity, std::vector<std::string>& warnings) {
    return Fit(std::move(design), file, capacity).result(warnings);
}

}  // namespace calibrate
