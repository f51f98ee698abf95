#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

struct sf_private_tag;

namespace calibrate {

/// A WAV file of 32-bit floats with one channel that grows while it is written. It is valid at any
/// time, even when the process is killed: then at most the last tenth of a second is missing.
class WaveFileWriter {
public:
    /// What a WAV file can hold; some six hours at 48 kHz.
    static constexpr std::uint64_t kMaxSamples = 1'000'000'000;

    /// Throws BadInput when a file cannot be made there, for an early answer; makes none.
    /// `overwrite`: a file that exists may be replaced.
    static void check(const std::filesystem::path& path, bool overwrite);

    /// Makes the file. Throws BadInput, or OutputError when the system refuses.
    WaveFileWriter(std::filesystem::path path, int sampleRate, bool overwrite);
    /// Closes the file, whatever comes of it.
    ~WaveFileWriter();
    WaveFileWriter(const WaveFileWriter&) = delete;
    WaveFileWriter& operator=(const WaveFileWriter&) = delete;

    /// Throws OutputError when the samples cannot be written; what was written before stays.
    void write(std::span<const float> samples);

    /// Writes what is left, and closes the file. Throws OutputError.
    void close();

private:
    struct Close {
        void operator()(sf_private_tag* file) const;
    };

    void flush();
    [[noreturn]] void fail(const std::string& why) const;

    const std::filesystem::path path_;
    const std::size_t blockLength_;
    std::unique_ptr<sf_private_tag, Close> file_;
    std::vector<float> pending_;
    std::uint64_t written_{0};
};

}  // namespace calibrate
