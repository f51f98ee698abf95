#pragma once

#include <filesystem>
#include <string>

namespace roomsim {

/// The text of an ALSA configuration file with the PCM "room": what it plays and records happens in
/// the room that `room` describes. To be named in ALSA_CONFIG_PATH after the system's own file.
std::string alsaConfiguration(const std::filesystem::path& plugin,
                              const std::filesystem::path& room);

}  // namespace roomsim
