#pragma once

#include "support/ScratchDirectory.h"

#include <alsa/asoundlib.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

/// Makes alsa-lib see the PCM "recorder", which keeps what is played in a file of raw samples and
/// takes it as fast as it comes, and the given PCMs, for as long as it lives.
class AlsaConfiguration {
public:
    explicit AlsaConfiguration(const std::string& definitions = "") {
        const auto file = scratch_.path() / "asound.conf";
        std::ofstream(file) << "pcm.recorder { type file slave.pcm null format raw file \""
                            << recording().string() << "\" }\n"
                            << definitions;
        setenv("ALSA_CONFIG_PATH", ("/usr/share/alsa/alsa.conf:" + file.string()).c_str(), 1);
        snd_config_update_free_global();
    }
    ~AlsaConfiguration() { snd_config_update_free_global(); }
    AlsaConfiguration(const AlsaConfiguration&) = delete;
    AlsaConfiguration& operator=(const AlsaConfiguration&) = delete;

    std::filesystem::path scratch() const { return scratch_.path(); }

    /// What was played last; complete once the PCM has been closed.
    std::vector<std::int32_t> recorded() const {
        std::ifstream stream(recording(), std::ios::binary);
        std::vector<std::int32_t> samples(std::filesystem::file_size(recording()) / 4);
        stream.read(reinterpret_cast<char*>(samples.data()),
                    static_cast<std::streamsize>(samples.size() * 4));
        return samples;
    }

private:
    std::filesystem::path recording() const { return scratch_.path() / "played.raw"; }

    const ScratchDirectory scratch_;
};
