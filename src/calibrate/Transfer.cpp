#include "calibrate/Transfer.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"

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

class Sender {
public:
    Sender(EndpointClient& client, const FilterDesign& design,
           const std::vector<std::string>& speakerNames, ProgressBar& progress)
        : client_(client), design_(design), names_(speakerNames), progress_(progress) {}

    void send(const protocol::SlotInfo& slot) {
        progress_.update(0, "opening the transfer");
        client_.beginFilterTransfer(slot);
        for (std::size_t speaker = 0; speaker < names_.size(); ++speaker)
            sendSpeaker(speaker);
    }

private:
    void sendSpeaker(std::size_t speaker) {
        step_ =
            "sending speaker " + std::to_string(speaker) + " \"" + printable(names_[speaker]) + '"';
        advance();
        client_.setTransferCell(speakerCell(speaker));
        for (const auto& variant : design_.variants) {
            client_.setCellFiir(message(variant, speaker));
            ++sent_;
            advance();
        }
    }

    void advance() {
        const auto all = static_cast<double>(names_.size() * design_.variants.size());
        progress_.update(kSending * static_cast<double>(sent_) / all, step_);
    }

    EndpointClient& client_;
    const FilterDesign& design_;
    const std::vector<std::string>& names_;
    ProgressBar& progress_;
    std::size_t sent_{0};
    std::string step_;
};

std::string mayBeStored(int slot) {
    return "; slot " + std::to_string(slot) +
           " may hold the new filter or none: 'vesk-calibrate slots' tells";
}

void store(EndpointClient& client, int slot, ProgressBar& progress) {
    const std::string step = "storing";
    progress.update(kSending, step);
    client.endFilterTransfer(
        slot, [&](double stored) { progress.update(kSending + (1 - kSending) * stored, step); });
    progress.update(1, step);
}

}  // namespace

protocol::CellIndex speakerCell(std::size_t speaker) {
    protocol::CellIndex cell;
    cell.set_section(kSpeakerSection);
    cell.set_input_channel(static_cast<std::uint32_t>(speaker));
    cell.set_output_channel(static_cast<std::uint32_t>(speaker));
    return cell;
}

void transfer(EndpointClient& client, const protocol::SlotInfo& slot, const FilterDesign& design,
              const std::vector<std::string>& speakerNames, ProgressBar& progress) {
    const std::string nothing = "; nothing was stored";
    try {
        Sender(client, design, speakerNames, progress).send(slot);
    } catch (const DeviceError& error) {
        throw DeviceError(error.reason(), error.what() + nothing);
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.what() + nothing);
    }
    try {
        store(client, slot.slot(), progress);
    } catch (const DeviceError& error) {
        const bool refused = error.reason() == DeviceError::Reason::rejected;
        throw DeviceError(error.reason(),
                          error.what() + (refused ? nothing : mayBeStored(slot.slot())));
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.what() + mayBeStored(slot.slot()));
    }
}

}  // namespace calibrate
