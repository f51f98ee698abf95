#include "calibrate/run/DesignTransfer.h"

#include "calibrate/Text.h"

namespace calibrate::run {
namespace {

protocol::FIIR message(const design::ParallelFilter& filter, const protocol::FIIRInfo& variant) {
    protocol::FIIR message;
    *message.mutable_info() = variant;
    message.mutable_fir()->mutable_taps()->Add(filter.taps.begin(), filter.taps.end());
    for (const auto& section : filter.sections) {
        auto* biquad = message.mutable_iir()->add_biquads();
        biquad->set_a1(section.a1);
        biquad->set_a2(section.a2);
        biquad->set_b0(section.b0);
        biquad->set_b1(section.b1);
    }
    return message;
}

protocol::IIR iir(const design::BassCell& cell, const protocol::FIIRInfo& variant) {
    protocol::IIR message;
    message.mutable_info()->set_variant(variant.variant());
    for (const auto& from : cell.biquads) {
        auto* biquad = message.add_biquads();
        biquad->set_a1(from.a1);
        biquad->set_a2(from.a2);
        biquad->set_b0(from.b0);
        biquad->set_b1(from.b1);
        biquad->set_b2(from.b2);
    }
    return message;
}

protocol::DelayGain delayGain(const design::BassCell& cell, const protocol::FIIRInfo& variant) {
    protocol::DelayGain message;
    message.mutable_info()->set_variant(variant.variant());
    message.set_delay(cell.delay);
    message.set_gain(static_cast<float>(cell.gain));
    return message;
}

protocol::CellIndex index(const design::BassCell& cell) {
    protocol::CellIndex index;
    index.set_section(cell.section);
    index.set_input_channel(cell.input);
    index.set_output_channel(cell.output);
    return index;
}

class Steps {
public:
    Steps(const design::DeviceDesign& design, const std::vector<protocol::FIIRInfo>& variants)
        : design_(design), variants_(variants) {}

    std::vector<TransferStep> all() {
        for (std::size_t i = 0; i < design_.speakers.size(); ++i)
            addSpeaker(i);
        if (!design_.bassCells.empty())
            addBass(design_.bassCells);
        return std::move(steps_);
    }

private:
    void add(const std::string& what, std::function<void(EndpointClient&)> send) {
        steps_.push_back({what, std::move(send)});
    }

    void addSpeaker(std::size_t index) {
        const auto& speaker = design_.speakers[index];
        const std::string what = "sending " + speakerText(index, speaker.name);
        add(what, [index](EndpointClient& client) { client.setTransferCell(speakerCell(index)); });
        for (std::size_t i = 0; i < variants_.size(); ++i) {
            add(what, [filter = &speaker.filters.at(i), variant = variants_[i]](auto& client) {
                client.setCellFiir(message(*filter, variant));
            });
        }
        if (design_.bassCells.empty())
            addAlignment(what, index, speaker.alignment);
    }

    void addAlignment(const std::string& what, std::size_t index,
                      const design::Alignment& alignment) {
        protocol::GainDelay message;
        message.set_input(static_cast<std::int32_t>(index));
        message.set_gain(static_cast<float>(alignment.gain));
        message.set_delay(static_cast<float>(1000 * alignment.delay));
        add(what, [message](EndpointClient& client) { client.setInputGainDelay(message); });
    }

    /// The cells of all variants are the same but for their coefficients.
    void addBass(const std::vector<std::vector<design::BassCell>>& cells) {
        const std::string what = "sending the bass management";
        for (std::size_t i = 0; i < cells.front().size(); ++i) {
            const auto& first = cells.front()[i];
            add(what, [&first](EndpointClient& client) { client.setTransferCell(index(first)); });
            for (std::size_t variant = 0; variant < variants_.size(); ++variant)
                addCell(what, cells.at(variant).at(i), variants_[variant]);
        }
    }

    void addCell(const std::string& what, const design::BassCell& cell,
                 const protocol::FIIRInfo& variant) {
        add(what, [&cell, variant](EndpointClient& client) {
            if (design::holdsDelay(cell.section))
                client.setCellDelayGain(delayGain(cell, variant));
            else
                client.setCellIir(iir(cell, variant));
        });
    }

    const design::DeviceDesign& design_;
    const std::vector<protocol::FIIRInfo>& variants_;
    std::vector<TransferStep> steps_;
};

}  // namespace

std::vector<TransferStep> transferSteps(const design::DeviceDesign& design,
                                        const std::vector<protocol::FIIRInfo>& variants) {
    return Steps(design, variants).all();
}

}  // namespace calibrate::run
