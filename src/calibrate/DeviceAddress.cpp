#include "calibrate/DeviceAddress.h"

#include "calibrate/Errors.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace calibrate {
namespace {

[[noreturn]] void refuse(std::string_view text, const std::string& why) {
    throw BadInput("--device " + std::string(text) + ": " + why +
                   "; write host, host:port or [address]:port");
}

bool isHost(std::string_view host) {
    return !host.empty() && std::all_of(host.begin(), host.end(), [](unsigned char character) {
        return std::isalnum(character) != 0 ||
               std::string_view(".-_:%").find(static_cast<char>(character)) !=
                   std::string_view::npos;
    });
}

std::uint16_t parsePort(std::string_view text, std::string_view digits) {
    std::uint16_t port = 0;
    const auto end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, port);
    if (error != std::errc{} || stop != end || port == 0)
        refuse(text, "the port is no number from 1 to 65535");
    return port;
}

}  // namespace

DeviceAddress DeviceAddress::parse(std::string_view text) {
    std::string_view host = text;
    std::string_view port;
    bool hasPort = false;
    if (text.starts_with('[')) {
        const auto bracket = text.find(']');
        if (bracket == std::string_view::npos)
            refuse(text, "a bracket is missing");
        host = text.substr(1, bracket - 1);
        const auto rest = text.substr(bracket + 1);
        if (!rest.empty() && rest[0] != ':')
            refuse(text, "only a port may follow the bracket");
        hasPort = !rest.empty();
        port = hasPort ? rest.substr(1) : rest;
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        hasPort = true;
        host = text.substr(0, text.find(':'));
        port = text.substr(text.find(':') + 1);
    }
    if (!isHost(host))
        refuse(text, "this is no host");
    return {std::string(host), hasPort ? parsePort(text, port) : kDefaultPort};
}

std::string DeviceAddress::text() const {
    const bool numericV6 = host.find(':') != std::string::npos;
    return (numericV6 ? '[' + host + ']' : host) + ':' + std::to_string(port);
}

}  // namespace calibrate
