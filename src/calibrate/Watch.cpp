#include "calibrate/Watch.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/GainRange.h"
#include "calibrate/JsonOutput.h"
#include "calibrate/NotificationStream.h"
#include "calibrate/Text.h"

#include <cmath>

namespace calibrate {
namespace {

/// How often a device that has nothing to tell is asked whether it is still there.
constexpr std::chrono::milliseconds kCheckInterval(10000);

/// A change in words, and as JSON.
struct Change {
    std::string text;
    Json json;
};

Change gainChange(const std::string& text, const std::string& key, double gain) {
    const double value = withoutRoundingError(gain);
    return {text + " is " + decibels(value),
            {{"change", key}, {"gain_db", std::isfinite(value) ? Json(value) : Json()}}};
}

Change activeSlotChange(EndpointClient& client) {
    const int slot = client.activeSlot();
    if (slot < 0)
        return {"no slot is active", {{"change", "active_slot"}, {"slot", nullptr}}};
    const std::string name = client.slotInfo(slot).name();
    return {"slot " + std::to_string(slot) + " \"" + printable(name) + "\" is active",
            {{"change", "active_slot"}, {"slot", slot}, {"name", name}}};
}

Change correctionChange(EndpointClient& client) {
    const bool on = client.operationMode().filtering();
    return {std::string("correction is ") + (on ? "on" : "off"),
            {{"change", "filtering"}, {"filtering", on}}};
}

Change slotsChange(EndpointClient& client) {
    Json table = toJson(readSlots(client, client.deviceInfo()));
    return {"the slots' texts have changed; 'vesk-calibrate slots' shows them",
            {{"change", "slots"}, {"slots", table["slots"]}}};
}

Change describe(EndpointClient& client, protocol::NotificationKind kind) {
    switch (kind) {
        case protocol::NOTIFICATION_KIND_ACTIVE_FILTER_CHANGED:
            return activeSlotChange(client);
        case protocol::NOTIFICATION_KIND_SLOT_INFO_CHANGED:
            return slotsChange(client);
        case protocol::NOTIFICATION_KIND_MIC_GAIN_CHANGED:
            return gainChange("microphone gain", "microphone_gain", client.micGain());
        case protocol::NOTIFICATION_KIND_SPEAKER_GAIN_CHANGED:
            return gainChange("speaker gain", "speaker_gain", client.speakerGain());
        case protocol::NOTIFICATION_KIND_FILTER_STATE_CHANGED:
            return correctionChange(client);
        default:
            return {"something changed that this program does not know", {{"change", "unknown"}}};
    }
}

std::string now() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return utcTime(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

void print(const Change& change, const Console& console) {
    const std::string time = now();
    Json line{{"time_utc", time}};
    line.update(change.json);
    console.printLine(time + "  " + change.text, line);
}

}  // namespace

void watch(EndpointClient& client, std::optional<std::uint64_t> count, const Console& console) {
    NotificationStream notifications(client);
    for (std::uint64_t printed = 0; !count || printed < *count;) {
        const auto kinds = notifications.wait(kCheckInterval);
        if (kinds.empty())
            client.activeSlot();
        for (const auto kind : kinds) {
            if (count && printed == *count)
                return;
            print(describe(client, kind), console);
            ++printed;
        }
    }
}

}  // namespace calibrate
