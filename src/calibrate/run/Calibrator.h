#pragma once

#include "calibrate/NotificationStream.h"
#include "calibrate/Run.h"
#include "calibrate/StimulusGains.h"
#include "calibrate/measurement/MicrophoneCalibration.h"
#include "calibrate/report/Calibration.h"
#include "calibrate/run/DesignTransfer.h"
#include "calibrate/run/DeviceState.h"
#include "calibrate/run/PositionMeasurement.h"

#include <stdexcept>

namespace calibrate::run {

/// The calibration came to its end, and a speaker is not as it should be.
class VerificationFailed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One calibration of one device, step by step; each step adds to the calibration() that becomes
/// the report. As long as the object lives it is the device's calibration client; its end leaves
/// the device as it was unless commit() was called.
class Calibrator {
public:
    /// `options.correction.system` is complete but for what the device tells. Must not outlive what
    /// it is made from. Throws DeviceError, with Reason::occupied when another client is there.
    Calibrator(EndpointClient& client, const RunOptions& options,
               const measurement::MicrophoneCalibration* microphone, Narrator& narrator);

    void measurePosition(std::size_t position);
    void design();
    /// Stores the design and puts its slot to use.
    void activate();
    /// Measures the speakers through the filter, and compares with what was predicted. A device
    /// that keeps its correction off while it plays stimuli is warned of, and stays unverified.
    /// Throws VerificationFailed.
    void verify();
    /// Warns that it was not verified, `why`, also in the report.
    void leaveUnverified(const std::string& why);
    /// What the device uses now stays in use.
    void commit() { state_.keep(); }
    /// The filter stays stored, but what the device used before comes back.
    void keepFilter() { state_.keepFilter(); }

    const DeviceProfile& profile() const { return profile_; }
    int slot() const { return slot_; }
    const report::Calibration& calibration() const { return calibration_; }

private:
    design::SystemOptions systemOptions() const;
    protocol::SlotInfo slotInfo() const;
    void add(std::vector<report::SweepResult> results);
    std::vector<report::SweepResult> measureThroughFilter();
    void conclude();
    std::function<void(const std::string&)> warning();

    EndpointClient& client_;
    const RunOptions& options_;
    Narrator& narrator_;
    const NotificationStream presence_;
    const std::unique_ptr<Microphone> microphone_;
    const DeviceProfile profile_;
    const int slot_;
    DeviceState state_;
    StimulusGains gains_;
    RoomRecorder recorder_;
    PositionMeasurement measurement_;
    report::Calibration calibration_;
};

}  // namespace calibrate::run
