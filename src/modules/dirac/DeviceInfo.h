#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What the device is: assembled from the configuration at each start of the calibration server.
/// Texts are UTF-8.
struct DeviceInfo {
    struct Speaker {
        std::string name;
        std::uint32_t type{0};  ///< kSubwooferType, or the device's own number
        std::uint32_t groupId{0};
    };

    /// Type of a speaker that is counted apart from the others.
    static constexpr std::uint32_t kSubwooferType = 4;

    std::string manufacturer;
    std::string deviceName;
    std::string modelName;
    std::string uuid;
    std::vector<Speaker> speakers;
    std::vector<std::string> mics;
    std::uint32_t numberOfSlots{0};
    std::string extraInfo;
    std::int32_t stimuliSampleRate{0};  ///< Hz
    std::uint32_t stimuliChannels{0};
    std::int32_t ipcKey{0};  ///< of no effect; the segment has a key of its own
};
