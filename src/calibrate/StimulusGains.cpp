#include "calibrate/StimulusGains.h"

#include "calibrate/GainRange.h"

#include <algorithm>
#include <cmath>

namespace calibrate {

StimulusGains::StimulusGains(EndpointClient& client, std::function<void(const std::string&)> warn)
    : client_(client), warn_(std::move(warn)) {
}

StimulusGains::~StimulusGains() {
    try {
        client_.uninterrupted([this] { restore(); });
    } catch (const std::exception& error) {
        warn_(std::string("the speakers' stimulus gains could not be restored: ") + error.what());
    }
}

void StimulusGains::set(const std::vector<int>& speakers, std::optional<double> gain) {
    const auto range = client_.stimuliGainInfo();
    if (gain)
        checkGain("--gain", *gain, range);
    for (const int speaker : speakers)
        change(speaker, gain, range.minimum());
}

void StimulusGains::change(int speaker, std::optional<double> gain, double least) {
    const double present = client_.stimuliGain(speaker);
    const bool isSet = std::isfinite(present);
    if (!gain && isSet)
        return;
    const bool known = std::any_of(previous_.begin(), previous_.end(),
                                   [&](const auto& entry) { return entry.first == speaker; });
    if (!known)
        previous_.emplace_back(speaker, isSet ? withoutRoundingError(present) : least);
    client_.setStimuliGain(speaker, gain.value_or(least));
}

void StimulusGains::restore() {
    for (const auto& [speaker, gain] : previous_)
        client_.setStimuliGain(speaker, gain);
}

}  // namespace calibrate
