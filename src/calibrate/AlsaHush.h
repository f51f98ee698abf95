#pragma once

namespace calibrate {

/// Keeps alsa-lib from printing what it has to say about failures in this thread for as long as it
/// exists. At most one at a time in a thread.
class AlsaHush {
public:
    AlsaHush();
    ~AlsaHush();
    AlsaHush(const AlsaHush&) = delete;
    AlsaHush& operator=(const AlsaHush&) = delete;
};

}  // namespace calibrate
