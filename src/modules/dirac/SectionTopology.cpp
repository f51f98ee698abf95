#include "modules/dirac/SectionTopology.h"

#include <set>

namespace {

struct SpeakerCounts {
    unsigned all{0};
    unsigned subwoofers{0};
    unsigned others{0};
    unsigned groups{0};  ///< of the others
};

SpeakerCounts count(const std::vector<DeviceInfo::Speaker>& speakers) {
    SpeakerCounts counts;
    std::set<std::uint32_t> groups;
    for (const DeviceInfo::Speaker& speaker : speakers) {
        ++counts.all;
        if (speaker.type == DeviceInfo::kSubwooferType) {
            ++counts.subwoofers;
        } else {
            ++counts.others;
            groups.insert(speaker.groupId);
        }
    }
    counts.groups = static_cast<unsigned>(groups.size());
    return counts;
}

SectionDimensions wrapped(unsigned inputs, unsigned outputs) {
    return {static_cast<std::uint8_t>(inputs), static_cast<std::uint8_t>(outputs)};
}

}  // namespace

std::optional<SectionDimensions> sectionDimensions(const std::vector<DeviceInfo::Speaker>& speakers,
                                                   std::uint8_t section) {
    const SpeakerCounts speaker = count(speakers);
    // The channels between the stages of bass management: the speakers and one common bass channel,
    // then a bass channel for each group, then two bands for each speaker.
    const unsigned channels = speaker.others + (speaker.subwoofers > 0 ? 1 : 0);
    const unsigned grouped = channels + speaker.groups;
    const unsigned bands = 2 * speaker.others + speaker.subwoofers;
    switch (section) {
        case 0:
            return wrapped(channels, grouped);
        case 1:
            return wrapped(grouped, grouped);
        case 2:
            return wrapped(grouped, bands);
        case 3:
            return wrapped(bands, bands);
        case 4:
            return wrapped(bands, speaker.all);
        case kCorrectionSection:
            return wrapped(speaker.all, speaker.all);
        default:
            return std::nullopt;
    }
}
