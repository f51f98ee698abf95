#pragma once

#include "calibrate/EndpointClient.h"

#include <functional>
#include <optional>
#include <string>

namespace calibrate::run {

/// Which filter a device uses, and how. The object's end restores it, even after a stop request,
/// unless keep() was called. Must not outlive the client.
class DeviceState {
public:
    /// `warn` is told by the destructor, in one line, when something cannot be restored.
    DeviceState(EndpointClient& client, std::function<void(const std::string&)> warn);
    ~DeviceState();
    DeviceState(const DeviceState&) = delete;
    DeviceState& operator=(const DeviceState&) = delete;

    int activeSlot() const { return activeSlot_; }
    /// None: the device does not tell.
    const std::optional<protocol::OperationMode>& mode() const { return mode_; }

    /// From here on the restoring empties a slot that was empty: what is stored there is not
    /// wanted unless all goes well.
    void fill(int slot);
    /// The restoring leaves the slot's filter.
    void keepFilter() { filled_.reset(); }
    /// From here on slot and mode are changed.
    void change() { changed_ = true; }
    /// What is in use now stays so.
    void keep();

private:
    void restore();
    void restoreSlot();

    EndpointClient& client_;
    const std::function<void(const std::string&)> warn_;
    const int activeSlot_;
    const std::optional<protocol::OperationMode> mode_;
    std::optional<int> filled_;
    bool changed_{false};
};

/// Switches all stages of the correction, and waits until the device shows it. Throws DeviceError.
void switchCorrection(EndpointClient& client, bool filtering);

/// Has the device choose a slot, without switching anything. Throws DeviceError.
void chooseActiveSlot(EndpointClient& client, int slot);

}  // namespace calibrate::run
