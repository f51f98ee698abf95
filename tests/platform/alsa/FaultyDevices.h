#pragma once

#include <string>

// ALSA devices that fail as real ones do. Each moves frames as fast as they come, for 4146 frames
// from its start on, and then:
//
//   pcm.unplugged  is gone: its state says so, and it wakes whoever waits with an error
//   pcm.erring     wakes whoever waits with an error, while its state stays as it was
//   pcm.waking     wakes whoever waits, and nothing moves
//   pcm.suspended  is suspended, and wakes whoever waits with an error; once prepared it begins
//                  anew
//   pcm.xrunning   has run dry or full; once prepared it begins anew
//   pcm.lame       has run dry or full, and once prepared does so again at its start
//   pcm.coarse     goes on for ever, in periods of 4096 frames
//
// What they play or record is silence.

/// The definitions of these devices for an AlsaConfiguration.
inline std::string faultyDevices() {
    std::string text = "pcm_type.faulty { lib \"" VESK_FAULTY_DEVICES "\" }\n";
    for (const char* fault :
         {"unplugged", "erring", "waking", "suspended", "xrunning", "lame", "coarse"})
        text += std::string("pcm.") + fault + " { type faulty fault " + fault + " }\n";
    return text;
}
