#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace calibrate {

/// Where a device listens.
struct DeviceAddress {
    static constexpr std::uint16_t kDefaultPort = 5002;

    std::string host{"127.0.0.1"};  ///< name or numeric address, without brackets
    std::uint16_t port{kDefaultPort};

    /// Reads "host", "host:port", "[address]:port" or a bare IPv6 address.
    /// Throws BadInput when the text is none of these.
    static DeviceAddress parse(std::string_view text);

    /// "host:port", the host in brackets when it is an IPv6 address.
    std::string text() const;
};

}  // namespace calibrate
