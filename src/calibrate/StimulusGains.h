#pragma once

#include "calibrate/EndpointClient.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace calibrate {

/// The gains at which speakers play stimuli, changed for as long as the object lives. Its end
/// restores them, even after a stop request; a gain that was never set becomes the least that the
/// device has, because the protocol cannot take a gain back.
///
/// Must not outlive the client.
class StimulusGains {
public:
    /// `warn` is told by the destructor, in one line, when the gains cannot be restored.
    StimulusGains(EndpointClient& client, std::function<void(const std::string&)> warn);
    ~StimulusGains();
    StimulusGains(const StimulusGains&) = delete;
    StimulusGains& operator=(const StimulusGains&) = delete;

    /// Sets the gain of these speakers, in dB. Without a gain only those are set that have none,
    /// which would be silent: to the least of the range.
    /// Throws BadInput for a gain outside the device's range, before anything is changed.
    void set(const std::vector<int>& speakers, std::optional<double> gain);

private:
    void change(int speaker, std::optional<double> gain, double least);
    void restore();

    EndpointClient& client_;
    const std::function<void(const std::string&)> warn_;
    std::vector<std::pair<int, double>> previous_;  // speaker, and its gain in dB
};

}  // namespace calibrate
