#pragma once

#include <stdexcept>
#include <string>

namespace roomsim {

/// A room that cannot be opened. what() is one line for a person: the file, the place in it, the
/// reason. code() is the errno value that snd_pcm_open reports.
class RoomError : public std::runtime_error {
public:
    RoomError(int code, const std::string& text) : std::runtime_error(text), code_(code) {}

    [[nodiscard]] int code() const { return code_; }

private:
    int code_;
};

}  // namespace roomsim
