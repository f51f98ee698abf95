#pragma once

#include "calibrate/EndpointClient.h"
#include "calibrate/Errors.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace calibrate {

/// More of anything than this is no device but a mistake.
inline constexpr unsigned kMaxCount = 1024;

/// Throws DeviceError when a device claims more than kMaxCount of `what`.
int plausibleCount(unsigned count, const std::string& what);

/// The answer of `query`, or nothing from a device that does not have the method.
template <class Query>
auto ifOffered(Query query) -> std::optional<decltype(query())> {
    try {
        return query();
    } catch (const DeviceError& error) {
        if (error.reason() != DeviceError::Reason::notOffered)
            throw;
        return std::nullopt;
    }
}

/// The answers of `query(0)`, `query(1)`, … until the device rejects the index; none from a device
/// that does not have the method. For lists whose length the protocol does not tell.
template <class Query>
auto untilRejected(Query query) -> std::vector<decltype(query(0))> {
    std::vector<decltype(query(0))> answers;
    try {
        while (answers.size() < kMaxCount)
            answers.push_back(query(static_cast<int>(answers.size())));
    } catch (const DeviceError& error) {
        if (error.reason() != DeviceError::Reason::rejected &&
            error.reason() != DeviceError::Reason::notOffered)
            throw;
    }
    return answers;
}

/// The slots of a device, and which of them is in use.
struct SlotTable {
    std::vector<protocol::SlotInfo> slots;  ///< by slot number
    int active{-1};                         ///< -1: none
    std::optional<bool> filtering;  ///< whether correction is on; none: the device is silent

    /// Whether a slot is as good as certainly empty; the protocol does not say it outright.
    static bool looksEmpty(const protocol::SlotInfo& slot);
};

/// All that a device tells about what it is made of.
struct Topology {
    struct Section {
        protocol::SectionInfo info;
        protocol::CellInfo cell;  ///< its first cell; default when the section has none
    };

    protocol::DeviceInfo device;
    std::vector<protocol::SpeakerInfo> speakers;
    std::vector<protocol::MicInfo> microphones;
    std::vector<Section> sections;
    protocol::StimuliInfo stimuli;
    std::vector<protocol::LogSweepInfo> logSweeps;
    std::vector<protocol::PinkNoiseInfo> pinkNoises;
    std::vector<protocol::FIIRInfo> fiirs;
    std::vector<protocol::IIRInfo> iirs;
    std::vector<protocol::DelayGainInfo> delayGains;
    std::optional<protocol::StreamingInfo> streaming;
    std::optional<protocol::GainInfo> speakerGain;
    std::optional<protocol::GainInfo> microphoneGain;
    std::optional<protocol::GainInfo> stimulusGain;
    SlotTable slots;
};

/// Whether a speaker plays the bass of the others, and is crossed over to them.
bool isSubwoofer(const protocol::SpeakerInfo& speaker);

std::vector<protocol::SpeakerInfo> readSpeakers(EndpointClient& client,
                                                const protocol::DeviceInfo& device);
std::vector<std::string> readSpeakerNames(EndpointClient& client,
                                          const protocol::DeviceInfo& device);
SlotTable readSlots(EndpointClient& client, const protocol::DeviceInfo& device);
Topology readTopology(EndpointClient& client);

/// Throws BadInput when the device does not have the slot.
void checkSlot(int slot, const protocol::DeviceInfo& device);

}  // namespace calibrate
