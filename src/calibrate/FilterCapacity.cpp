#include "calibrate/FilterCapacity.h"

#include "calibrate/Errors.h"
#include "calibrate/JsonOutput.h"
#include "calibrate/Text.h"
#include "calibrate/Transfer.h"

#include <algorithm>
#include <cmath>

namespace calibrate {
namespace {

[[noreturn]] void cannotHoldFilters(const std::string& why) {
    throw DeviceError(DeviceError::Reason::failed,
                      "the device cannot hold a filter for each speaker: " + why);
}

protocol::CellInfo readCell(EndpointClient& client, std::size_t speaker) {
    const auto cell = client.cellInfo(speakerCell(speaker));
    if (cell.kind() != protocol::FILTER_KIND_FIIR || cell.variants().empty()) {
        cannotHoldFilters("speaker " + std::to_string(speaker) + " takes " +
                          filterKindName(cell.kind()));
    }
    return cell;
}

protocol::FIIRInfo readVariant(EndpointClient& client, std::uint32_t id) {
    auto info = client.fiirInfo(static_cast<int>(id));
    const auto rate = static_cast<double>(info.sample_rate());
    if (!(rate > 0 && std::isfinite(rate)) || info.max_taps() == 0) {
        cannotHoldFilters("variant " + std::to_string(id) + " has " +
                          counted(info.max_taps(), "tap") + " at " + hertz(rate));
    }
    info.set_variant(id);
    return info;
}

}  // namespace

std::vector<protocol::FIIRInfo> readFilterVariants(EndpointClient& client, std::size_t speakers) {
    const auto section = client.sectionInfo(static_cast<int>(kSpeakerSection));
    if (speakers == 0 || section.num_inputs() != speakers || section.num_outputs() != speakers) {
        cannotHoldFilters(counted(speakers, "speaker") + ", but " +
                          counted(section.num_outputs(), "filter"));
    }
    const auto first = readCell(client, 0);
    for (std::size_t i = 1; i < speakers; ++i) {
        const auto cell = readCell(client, i);
        if (!std::equal(cell.variants().begin(), cell.variants().end(), first.variants().begin(),
                        first.variants().end()))
            cannotHoldFilters("speakers 0 and " + std::to_string(i) + " differ in their variants");
    }
    std::vector<protocol::FIIRInfo> variants;
    for (const auto id : first.variants())
        variants.push_back(readVariant(client, id));
    return variants;
}

}  // namespace calibrate
