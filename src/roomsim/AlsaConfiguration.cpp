#include "roomsim/AlsaConfiguration.h"

#include <sstream>

namespace roomsim {
namespace {

std::string quoted(const std::filesystem::path& path) {
    std::string text = "\"";
    for (const char c : std::filesystem::absolute(path).lexically_normal().string()) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return text + '"';
}

}  // namespace

std::string alsaConfiguration(const std::filesystem::path& plugin,
                              const std::filesystem::path& room) {
    std::ostringstream text;
    text << "pcm_type.veskroom {\n    lib " << quoted(plugin)
         << "\n}\n"
            "pcm.room {\n    type veskroom\n    room "
         << quoted(room) << "\n    hint { show on description \"Simulated room\" }\n}\n";
    return text.str();
}

}  // namespace roomsim
