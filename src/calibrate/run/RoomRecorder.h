#pragma once

#include "calibrate/Microphone.h"
#include "calibrate/run/DeviceProfile.h"
#include "calibrate/run/Narrator.h"

#include <functional>
#include <vector>

namespace calibrate::run {

/// Has a device play sweeps, and records them. Must not outlive what it is made from. Gains are the
/// caller's concern.
class RoomRecorder {
public:
    RoomRecorder(Microphone& microphone, const DeviceProfile& profile, Narrator& narrator)
        : microphone_(microphone), profile_(profile), narrator_(narrator) {}

    /// Whether what it records drifts away from what the device plays.
    bool drifts() const { return microphone_.hasOwnClock(); }

    /// What the microphone hears without any stimulus, for `seconds`.
    /// `meanwhile` is called again and again with the s that are recorded.
    std::vector<double> listen(double seconds, const std::string& step,
                               const std::function<void(double)>& meanwhile = {});

    /// A sweep through each of these speakers, one after the other, in one recording. `meanwhile`
    /// is called again and again with the s that are recorded; it may make calls to the device.
    /// Throws DeviceError when the recording ends before all of them were played.
    std::vector<double> play(const std::vector<std::size_t>& speakers, const std::string& step,
                             const std::function<void(double)>& meanwhile = {});

private:
    void warnOfInvalid(std::uint64_t samples);
    void checkComplete(double recorded, double played) const;

    Microphone& microphone_;
    const DeviceProfile& profile_;
    Narrator& narrator_;
};

}  // namespace calibrate::run
