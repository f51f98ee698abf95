#pragma once

#include "platform/DeviceDescription.h"

/// A stereo device whose settings live in memory only.
inline platform::DeviceDescription deviceInMemory() {
    platform::DeviceDescription device;
    device.manufacturer = "Maker";
    device.deviceName = "Room";
    device.productShortName = "Xy";
    device.uuidNamespace = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
    device.ethernetMac = "aa:bb:cc:dd:ee:ff";
    device.speakers = {{"Left", 0, 0}, {"Right", 0, 0}};
    device.volumeMap = {-60, 0};
    return device;
}
