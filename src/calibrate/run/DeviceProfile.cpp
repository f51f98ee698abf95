#include "calibrate/run/DeviceProfile.h"

#include "calibrate/FilterCapacity.h"
#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace calibrate::run {
namespace {

using protocol::LogSweepInfo;

constexpr double kSubwoofersEnd = 120;  // Hz, up to which every subwoofer plays

// What no device needs more of; the protocol takes no more either.
constexpr std::uint32_t kMostTaps = 65'536;
constexpr std::uint32_t kMostSections = 200;
constexpr std::uint32_t kMostDelay = 1'000'000;  // samples

constexpr double kShortestSweep = 0.2;  // s; less tells nothing about the bass
constexpr double kLongestSweep = 120;   // s

[[noreturn]] void fail(const std::string& what) {
    throw DeviceError(DeviceError::Reason::failed, what);
}

/// Names that files and reports can tell apart.
void makeNamesDiffer(std::vector<DeviceProfile::Speaker>& speakers) {
    std::set<std::string> taken;
    for (std::size_t i = 0; i < speakers.size(); ++i) {
        auto& name = speakers[i].name;
        if (name.empty())
            name = "Speaker " + std::to_string(i);
        while (!taken.insert(name).second)
            name += " " + std::to_string(i);
    }
}

std::vector<DeviceProfile::Speaker> readAllSpeakers(EndpointClient& client,
                                                    const protocol::DeviceInfo& device) {
    std::vector<DeviceProfile::Speaker> speakers;
    for (const auto& info : readSpeakers(client, device))
        speakers.push_back({printable(info.name()), isSubwoofer(info), info.group()});
    if (speakers.empty())
        fail("the device has no speakers");
    makeNamesDiffer(speakers);
    return speakers;
}

double period(const LogSweepInfo& info) {
    return (static_cast<double>(info.length()) + info.silence()) * info.num_periods() /
           static_cast<double>(info.sample_rate());
}

measurement::LogSweep toSweep(const LogSweepInfo& info) {
    return {static_cast<double>(info.start_frequency()),
            static_cast<double>(info.end_frequency()),
            info.length(),
            info.silence(),
            info.num_periods(),
            static_cast<double>(info.sample_rate()),
            info.fade_out_tail()};
}

/// Whether a room can be measured with it.
bool isUsable(const LogSweepInfo& info) {
    const auto rate = static_cast<double>(info.sample_rate());
    const auto from = static_cast<double>(info.start_frequency());
    const auto to = static_cast<double>(info.end_frequency());
    const bool rates = rate >= 1'000 && rate <= 1e6;
    const bool range = from > 0 && to > 2 * from && to <= rate / 2;
    return rates && range && info.num_periods() == 1 && info.length() / rate >= kShortestSweep &&
           period(info) <= kLongestSweep && std::isfinite(info.fade_out_tail()) &&
           info.fade_out_tail() < to - from && toSweep(info).highestCovered() > from;
}

double octaves(const LogSweepInfo& info) {
    return std::log2(static_cast<double>(info.end_frequency() / info.start_frequency()));
}

void chooseSweep(EndpointClient& client, DeviceProfile& profile) {
    const auto all = untilRejected([&](int index) { return client.logSweepInfo(index); });
    const LogSweepInfo* best = nullptr;
    for (const auto& info : all) {
        if (isUsable(info) && (!best || octaves(info) > octaves(*best)))
            best = &info;
    }
    if (!best)
        fail(
            "the device plays no sweep with which a room can be measured; 'vesk-calibrate info' "
            "lists its stimuli");
    profile.sweep = toSweep(*best);
    profile.sweepVariant = static_cast<int>(best - all.data());
}

void checkGainRange(const protocol::GainInfo& range) {
    const bool sane = std::isfinite(range.minimum()) && std::isfinite(range.maximum()) &&
                      range.minimum() <= range.maximum();
    if (!sane)
        fail("the device claims a stimulus gain from " + decibels(range.minimum()) + " to " +
             decibels(range.maximum()));
}

/// The least that all variants hold, because one alignment serves them all.
void readBassCapacity(EndpointClient& client, DeviceProfile& profile) {
    auto& bass = profile.bass;
    for (const auto& filter : profile.filters) {
        const auto info = client.iirInfo(static_cast<int>(filter.variant()));
        bass.maxBiquads = std::min<std::size_t>(bass.maxBiquads, info.max_biquads());
    }
}

void readAlignment(EndpointClient& client, DeviceProfile& profile) {
    design::AlignmentCapacity least{std::numeric_limits<double>::infinity(),
                                    std::numeric_limits<double>::infinity()};
    int samples = static_cast<int>(kMostDelay);
    for (const auto& filter : profile.filters) {
        const auto info = client.delayGainInfo(static_cast<int>(filter.variant()));
        const auto delay = std::min(info.max_delay(), kMostDelay);
        samples = std::min(samples, static_cast<int>(delay));
        least.maxDelay =
            std::min(least.maxDelay, delay / static_cast<double>(filter.sample_rate()));
        const auto gain = static_cast<double>(info.max_gain());
        least.maxGain = std::min(least.maxGain, std::isfinite(gain) ? std::max(gain, 0.0) : 0.0);
    }
    profile.alignment = least;
    profile.bass.maxDelay = samples;
}

void checkFilters(const DeviceProfile& profile) {
    for (const auto& filter : profile.filters) {
        const auto rate = static_cast<double>(filter.sample_rate());
        if (rate < 8'000 || rate > 768'000)
            fail("the device claims to filter at a sample rate of " + hertz(rate));
    }
}

}  // namespace

measurement::PlayedRange DeviceProfile::Speaker::range() const {
    measurement::PlayedRange range;
    if (subwoofer)
        range.highest = kSubwoofersEnd;
    return range;
}

double DeviceProfile::sweepPeriod() const {
    return static_cast<double>((sweep.length + sweep.silence) * sweep.periods) / sweep.sampleRate;
}

bool DeviceProfile::hasSubwoofer() const {
    return std::ranges::any_of(speakers, &Speaker::subwoofer);
}

std::vector<design::FilterCapacity> DeviceProfile::capacities() const {
    std::vector<design::FilterCapacity> result;
    for (const auto& filter : filters) {
        result.push_back({static_cast<double>(filter.sample_rate()),
                          std::min(filter.max_taps(), kMostTaps),
                          std::min(filter.max_biquads(), kMostSections)});
    }
    return result;
}

DeviceProfile readProfile(EndpointClient& client, const Microphone& microphone) {
    DeviceProfile profile;
    profile.device = client.deviceInfo();
    profile.speakers = readAllSpeakers(client, profile.device);
    profile.microphoneRate = microphone.sampleRate();
    profile.microphoneName = microphone.name();
    chooseSweep(client, profile);
    profile.stimulusGain = client.stimuliGainInfo();
    checkGainRange(profile.stimulusGain);
    profile.filters = readFilterVariants(client, profile.speakers.size());
    checkFilters(profile);
    readAlignment(client, profile);
    if (profile.hasSubwoofer())
        readBassCapacity(client, profile);
    profile.slots = readSlots(client, profile.device);
    if (profile.slots.slots.empty())
        fail("the device has no slot for a filter");
    return profile;
}

int chooseSlot(const DeviceProfile& profile, std::optional<int> wanted) {
    if (wanted) {
        checkSlot(*wanted, profile.device);
        return *wanted;
    }
    const auto& slots = profile.slots.slots;
    const auto empty = std::ranges::find_if(slots, &SlotTable::looksEmpty);
    if (empty == slots.end()) {
        throw BadInput("all " + counted(slots.size(), "slot") +
                       " of the device are in use: choose one with --slot and --force, or empty "
                       "one with 'vesk-calibrate delete'");
    }
    return static_cast<int>(empty - slots.begin());
}

}  // namespace calibrate::run
