#include "calibrate/Transfer.h"

#include "calibrate/Errors.h"
#include "calibrate/Eventually.h"
#include "calibrate/Text.h"

#include <chrono>

namespace calibrate {
namespace {

/// Part of the way that lies before the device stores.
constexpr double kSending = 0.8;

protocol::FIIR message(const VariantDesign& design, std::size_t speaker) {
    protocol::FIIR filter;
    filter.mutable_info()->set_variant(design.variant.id);
    filter.mutable_info()->set_sample_rate(static_cast<float>(design.variant.sampleRate));
    const auto& taps = design.taps[speaker];
    filter.mutable_fir()->mutable_taps()->Add(taps.begin(), taps.end());
    return filter;
}

/// The steps of a speaker: one that names its cell, and one for each variant.
void addSpeaker(std::vector<TransferStep>& steps, const FilterDesign& design, std::size_t speaker,
                const std::string& name) {
    const std::string what =
        "sending speaker " + std::to_string(speaker) + " \"" + printable(name) + '"';
    steps.push_back({what, [speaker](EndpointClient& client) {
                         client.setTransferCell(speakerCell(speaker));
                     }});
    for (const auto& variant : design.variants) {
        steps.push_back({what, [&variant, speaker](EndpointClient& client) {
                             client.setCellFiir(message(variant, speaker));
                         }});
    }
}

void send(EndpointClient& client, const protocol::SlotInfo& slot,
          const std::vector<TransferStep>& steps, const TransferProgress& progress) {
    progress(0, "opening the transfer");
    client.beginFilterTransfer(slot);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        progress(kSending * static_cast<double>(i) / static_cast<double>(steps.size()),
                 steps[i].what);
        steps[i].send(client);
    }
}

std::string mayBeStored(int slot) {
    return "; slot " + std::to_string(slot) +
           " may hold the new filter or none: 'vesk-calibrate slots' tells";
}

void store(EndpointClient& client, int slot, const TransferProgress& progress) {
    const std::string step = "storing";
    progress(kSending, step);
    client.endFilterTransfer(
        slot, [&](double stored) { progress(kSending + (1 - kSending) * stored, step); });
    progress(1, step);
}

}  // namespace

protocol::CellIndex speakerCell(std::size_t speaker) {
    protocol::CellIndex cell;
    cell.set_section(kSpeakerSection);
    cell.set_input_channel(static_cast<std::uint32_t>(speaker));
    cell.set_output_channel(static_cast<std::uint32_t>(speaker));
    return cell;
}

void transfer(EndpointClient& client, const protocol::SlotInfo& slot,
              const std::vector<TransferStep>& steps, const TransferProgress& progress,
              bool storesToTheEnd) {
    const std::string nothing = "; nothing was stored";
    try {
        send(client, slot, steps, progress);
    } catch (const DeviceError& error) {
        throw DeviceError(error.reason(), error.what() + nothing);
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.what() + nothing);
    }
    try {
        if (storesToTheEnd)
            client.uninterrupted([&] { store(client, slot.slot(), progress); });
        else
            store(client, slot.slot(), progress);
    } catch (const DeviceError& error) {
        const bool refused = error.reason() == DeviceError::Reason::rejected;
        throw DeviceError(error.reason(),
                          error.what() + (refused ? nothing : mayBeStored(slot.slot())));
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.what() + mayBeStored(slot.slot()));
    }
}

std::vector<TransferStep> transferSteps(const FilterDesign& design,
                                        const std::vector<std::string>& speakerNames) {
    std::vector<TransferStep> steps;
    for (std::size_t speaker = 0; speaker < speakerNames.size(); ++speaker)
        addSpeaker(steps, design, speaker, speakerNames[speaker]);
    return steps;
}

std::int64_t creationTime(const protocol::SlotInfo& present) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t time = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    return time == present.creation_time() ? time + 1 : time;
}

void checkStored(EndpointClient& client, const protocol::SlotInfo& slot) {
    const auto stored = [&] {
        return client.slotInfo(slot.slot()).creation_time() == slot.creation_time();
    };
    if (!eventually(stored)) {
        throw DeviceError(DeviceError::Reason::failed, "the device accepted the filter, but slot " +
                                                           std::to_string(slot.slot()) +
                                                           " does not show it");
    }
}

}  // namespace calibrate
