#pragma once

#include <mutex>
#include <string>
#include <vector>

/// What the module asks of the platform, in its order, in programs that link CallLog.cpp with these
/// calls wrapped: CMAbstractWorker::setValue and CMAbstractWorker::invoke. The platform does all of
/// it, but for requests to the power manager, which StandInMicrophone takes. Any thread.
///
///     "filter off", "filter on"      the runtime slots are written
///     "playing", "not playing"       the device is shown to play a stimulus
///     "mixing off", "mixing on"      the streamer is told whether to mix other sound in
class CallLog {
public:
    static CallLog& instance();

    void clear();
    void add(const std::string& call);
    std::vector<std::string> calls() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> calls_;  // guarded by mutex_
};
