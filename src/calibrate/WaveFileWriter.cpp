#include "calibrate/WaveFileWriter.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"

#include <sndfile.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace calibrate {
namespace {

namespace fs = std::filesystem;

std::string nameOf(const fs::path& path) {
    return printable(path.string());
}

fs::path directoryOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

/// Opens a new file, or empties one that may be replaced; -1 when the system refuses.
int create(const fs::path& path, bool overwrite) {
    constexpr mode_t kMode = 0666;
    const int existing = overwrite ? O_TRUNC : O_EXCL;
    return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | existing, kMode);
}

}  // namespace

void WaveFileWriter::Close::operator()(sf_private_tag* file) const {
    sf_close(file);
}

void WaveFileWriter::check(const fs::path& path, bool overwrite) {
    std::error_code ignored;
    const auto status = fs::status(path, ignored);
    const std::string name = nameOf(path);
    if (fs::exists(status)) {
        if (!fs::is_regular_file(status))
            throw BadInput(name + ": is no regular file");
        if (!overwrite)
            throw BadInput(name + ": exists; give another name, or --force to replace it");
        if (access(path.c_str(), W_OK) != 0)
            throw BadInput(name + ": cannot be written: " + std::strerror(errno));
    } else if (access(directoryOf(path).c_str(), W_OK | X_OK) != 0) {
        throw BadInput(name + ": cannot be made: " + std::strerror(errno));
    }
}

WaveFileWriter::WaveFileWriter(fs::path path, int sampleRate, bool overwrite)
    : path_(std::move(path)), blockLength_(static_cast<std::size_t>(sampleRate) / 10) {
    check(path_, overwrite);
    const int descriptor = create(path_, overwrite);
    if (descriptor < 0)
        fail(std::strerror(errno));
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    file_.reset(sf_open_fd(descriptor, SFM_WRITE, &info, SF_TRUE));
    if (!file_)
        fail(sf_strerror(nullptr));
    // Its peaks would be stored with the time; the same sound is to give the same bytes.
    sf_command(file_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_command(file_.get(), SFC_SET_UPDATE_HEADER_AUTO, nullptr, SF_TRUE);
}

WaveFileWriter::~WaveFileWriter() {
    try {
        if (file_)
            flush();
    } catch (const OutputError&) {
        // Who wants to know calls close().
    }
}

void WaveFileWriter::write(std::span<const float> samples) {
    if (written_ + pending_.size() + samples.size() > kMaxSamples)
        fail("a WAV file holds no more");
    pending_.insert(pending_.end(), samples.begin(), samples.end());
    if (pending_.size() >= blockLength_)
        flush();
}

void WaveFileWriter::close() {
    flush();
    if (const int error = sf_close(file_.release()); error != SF_ERR_NO_ERROR)
        fail(sf_error_number(error));
}

void WaveFileWriter::flush() {
    const auto count = static_cast<sf_count_t>(pending_.size());
    const bool whole = sf_writef_float(file_.get(), pending_.data(), count) == count;
    written_ += pending_.size();
    pending_.clear();
    if (!whole)
        fail(sf_strerror(file_.get()));
}

void WaveFileWriter::fail(const std::string& why) const {
    throw OutputError(nameOf(path_) + ": cannot be written: " + printable(why));
}

}  // namespace calibrate
