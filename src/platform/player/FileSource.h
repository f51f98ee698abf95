#pragma once

#include "platform/player/AudioSource.h"

#include <sndfile.h>

#include <memory>
#include <string>
#include <vector>

namespace platform {

/// A sound file, of any kind that libsndfile reads.
class FileSource : public AudioSource {
public:
    /// Throws std::runtime_error, naming the file, when it cannot be read.
    explicit FileSource(const std::string& path);

    void update(std::uint64_t /*handedOver*/) override {}
    std::optional<AudioFormat> format() const override { return format_; }
    std::size_t read(std::span<std::int32_t> samples) override;
    bool isResting() const override { return over_; }
    bool isOver() const override { return over_; }
    int descriptor() const override { return -1; }

private:
    AudioFormat format_;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file_;
    std::vector<double> block_;
    bool over_{false};
};

}  // namespace platform
