#pragma once

#include "host/JsonReader.h"
#include "platform/DeviceDescription.h"

#include <string>

namespace host {

struct LogSettings {
    std::string level{"INFO"};  ///< a level of log4cplus
    std::string file;           ///< empty: standard error
};

/// All that the process must know before it starts.
struct HostDescription {
    platform::DeviceDescription device;
    LogSettings log;
};

/// Reads a device description. Everything in it is checked: wrong, missing and unknown keys throw
/// DescriptionError.
HostDescription readDescription(const std::string& file);

/// The same document from a description, with the values of keys that were left out.
std::string descriptionText(const HostDescription& description);

/// Whether `level` names a level of the log.
bool isLogLevel(const std::string& level);

/// Whether `text` is an IPv4 or IPv6 address.
bool isNetworkAddress(const std::string& text);

}  // namespace host
