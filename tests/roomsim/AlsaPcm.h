#pragma once

#include "roomsim/RoomFiles.h"

#include <alsa/asoundlib.h>

#include <memory>
#include <string>
#include <vector>

/// Makes alsa-lib see a room as the PCM "room", for as long as it lives.
class AlsaRoom {
public:
    explicit AlsaRoom(const RoomFiles& files);
    ~AlsaRoom();
    AlsaRoom(const AlsaRoom&) = delete;
    AlsaRoom& operator=(const AlsaRoom&) = delete;

    /// What alsa-lib has complained about.
    static std::string complaints();

    /// The value that ALSA_CONFIG_PATH has for the processes that the test starts.
    const std::string& configurationPath() const { return configurationPath_; }

private:
    std::string configurationPath_;
};

/// How a stream is set up.
struct StreamSetup {
    unsigned int channels;
    unsigned int rate = 48000;
    snd_pcm_uframes_t period = 512;
    snd_pcm_uframes_t buffer = 4096;
    snd_pcm_format_t format = SND_PCM_FORMAT_FLOAT_LE;
    snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED;
};

/// An open PCM handle, set up so that only start() starts it. Calls that fail, unless they are
/// asked for their result, fail the test by an exception.
class AlsaPcm {
public:
    AlsaPcm(snd_pcm_stream_t direction, const StreamSetup& setup, int mode = 0,
            const std::string& name = "room");

    snd_pcm_t* get() const { return handle_.get(); }
    operator snd_pcm_t*() const { return handle_.get(); }

    void start() const;
    void prepare() const;
    void drain() const;

    /// Writes one signal per channel, all of it.
    void write(const Signals& channels) const;

    /// Writes what fits; the number of frames or an error.
    snd_pcm_sframes_t tryWrite(const Signals& channels) const;

    /// Reads `frames` frames of one channel.
    Signal read(std::size_t frames) const;

    snd_pcm_sframes_t tryRead(std::size_t frames, Signal& signal) const;

    snd_pcm_state_t state() const { return snd_pcm_state(get()); }

    /// Polls for at most `milliseconds`, and gives the events that alsa-lib makes of it.
    unsigned short poll(int milliseconds) const;

private:
    std::vector<char> encoded(const Signals& channels) const;
    Signal decoded(const std::vector<char>& bytes, std::size_t frames) const;

    std::unique_ptr<snd_pcm_t, int (*)(snd_pcm_t*)> handle_;
    StreamSetup setup_;
};

/// Opens the PCM and gives what snd_pcm_open returns.
int openResult(snd_pcm_stream_t direction, const std::string& name = "room");
