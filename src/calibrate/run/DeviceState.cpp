#include "calibrate/run/DeviceState.h"

#include "calibrate/DeviceQuery.h"
#include "calibrate/Eventually.h"

namespace calibrate::run {
namespace {

constexpr int kNone = -1;

}  // namespace

DeviceState::DeviceState(EndpointClient& client, std::function<void(const std::string&)> warn)
    : client_(client),
      warn_(std::move(warn)),
      activeSlot_(client.activeSlot()),
      mode_(ifOffered([&] { return client.operationMode(); })) {
}

DeviceState::~DeviceState() {
    try {
        client_.uninterrupted([this] { restore(); });
    } catch (const std::exception& error) {
        warn_(std::string("the device could not be left as it was: ") + error.what() +
              "; 'vesk-calibrate slots' and 'vesk-calibrate mode' tell how it is");
    }
}

void DeviceState::fill(int slot) {
    if (SlotTable::looksEmpty(client_.slotInfo(slot)))
        filled_ = slot;
}

void DeviceState::keep() {
    filled_.reset();
    changed_ = false;
}

void DeviceState::restore() {
    if (filled_ && !SlotTable::looksEmpty(client_.slotInfo(*filled_)))
        client_.deleteSlot(*filled_);
    if (!changed_)
        return;
    restoreSlot();
    if (!mode_)
        return;
    auto mode = *mode_;
    // A filter that stays stored is still the device's last choice: without it nothing was heard.
    if (activeSlot_ == kNone && !filled_)
        mode.set_filtering(false);
    client_.setOperationMode(mode);
}

void DeviceState::restoreSlot() {
    if (client_.activeSlot() != activeSlot_)
        client_.setActiveSlot(activeSlot_);
}

void switchCorrection(EndpointClient& client, bool filtering) {
    protocol::OperationMode mode;
    mode.set_gain(true);
    mode.set_delay(true);
    mode.set_filtering(filtering);
    client.setOperationMode(mode);
    const auto isSwitched = [&] { return client.operationMode().filtering() == filtering; };
    if (!eventually(isSwitched)) {
        throw DeviceError(DeviceError::Reason::failed,
                          std::string("the device did not switch its correction ") +
                              (filtering ? "on" : "off") +
                              ": its configuration may forbid to change the filter");
    }
}

void chooseActiveSlot(EndpointClient& client, int slot) {
    client.setActiveSlot(slot);
    if (!eventually([&] { return client.activeSlot() == slot; })) {
        throw DeviceError(DeviceError::Reason::failed,
                          "the device did not activate slot " + std::to_string(slot) +
                              ": its configuration may forbid to change the filter");
    }
}

}  // namespace calibrate::run
