#include "calibrate/report/ReportFolder.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/design/DesignFiles.h"
#include "calibrate/measurement/SoundFile.h"
#include "calibrate/report/Curves.h"
#include "calibrate/report/FileNames.h"
#include "calibrate/report/ReportJson.h"
#include "calibrate/report/ReportPage.h"
#include "calibrate/report/ResponseText.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace calibrate::report {
namespace {

namespace fs = std::filesystem;
using measurement::ImpulseResponse;

constexpr std::size_t kFilterLength = 32'768;  // samples of a filter's impulse response
constexpr std::uintmax_t kFullDisk = 4'096;    // bytes; less is as good as nothing

std::string shown(const fs::path& path) {
    return printable(path.string());
}

/// The folder's own name: without links, dots and a slash at the end.
fs::path resolved(const fs::path& directory) {
    std::error_code error;
    const fs::path path = fs::weakly_canonical(fs::absolute(directory, error), error);
    if (error)
        throw BadInput(shown(directory) + ": cannot be made: " + error.message());
    return path.has_filename() ? path : path.parent_path();
}

/// A folder that is removed with everything in it unless it is put in its place.
class Staging {
public:
    explicit Staging(const fs::path& destination) : destination_(destination) {
        const auto name =
            "." + destination.filename().string() + ".partial-" + std::to_string(getpid()) + "-";
        std::error_code error;
        for (int i = 0; i < 100 && !made_ && !error; ++i) {
            path_ = destination.parent_path() / (name + std::to_string(i));
            made_ = fs::create_directory(path_, error);
        }
        if (!made_)
            throw OutputError(shown(destination) + ": cannot be made: " + error.message());
    }
    ~Staging() {
        std::error_code ignored;
        if (made_)
            fs::remove_all(path_, ignored);
    }
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    const fs::path& path() const { return path_; }
    const fs::path& destination() const { return destination_; }

    /// Replaces an empty folder; fails when somebody has put something into it meanwhile.
    void publish() {
        if (std::rename(path_.c_str(), destination_.c_str()) != 0)
            throw OutputError(shown(destination_) + ": cannot be made: " + std::strerror(errno));
        made_ = false;
    }

private:
    const fs::path destination_;
    fs::path path_;
    bool made_{false};
};

class Descriptor {
public:
    explicit Descriptor(const fs::path& path)
        : descriptor_(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {}
    ~Descriptor() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// False with errno when the system refuses.
    bool writeAll(std::string_view text) const {
        while (descriptor_ >= 0 && !text.empty()) {
            const auto count = ::write(descriptor_, text.data(), text.size());
            if (count < 0 && errno != EINTR)
                return false;
            text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        return descriptor_ >= 0 && fsync(descriptor_) == 0;
    }

private:
    const int descriptor_;
};

/// Writes all files of a calibration below a folder.
class Writer {
public:
    Writer(const Calibration& calibration, const Staging& staging)
        : calibration_(calibration), staging_(staging) {}

    void writeAll() const {
        for (const auto* folder : {"recordings", "impulse-responses", "responses", "filters"})
            makeFolder(folder);
        std::vector<SpeakerFigures> all;
        for (std::size_t i = 0; i < calibration_.speakers.size(); ++i) {
            writeSpeaker(i);
            all.push_back(figures(calibration_, i));
        }
        text(kTargetFile,
             responseText(calibration_.options.correction.target, "Target " + calibration_.target));
        if (calibration_.design)
            text(kFiltersFile, dump(design::toJson(*calibration_.design)));
        text(kJsonFile, dump(toJson(calibration_, all)));
        text(kPageFile, page(calibration_, all));
        removeEmptyFolders();
    }

private:
    /// Whatever a device's texts hold, the file is valid UTF-8.
    static std::string dump(const nlohmann::ordered_json& json) {
        return json.dump(1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    }

    void writeSpeaker(std::size_t index) const {
        const Speaker& speaker = calibration_.speakers[index];
        const FileNames names(index, speaker.name);
        for (std::size_t i = 0; i < speaker.positions.size(); ++i)
            writeSweep(speaker, speaker.positions[i], names, FileNames::position(i));
        if (speaker.verification)
            writeSweep(speaker, speaker.verification->sweep, names, FileNames::kAfter);
        if (const auto* correction = correctionOf(calibration_, index))
            writeCorrection(speaker, *correction, names);
    }

    void writeSweep(const Speaker& speaker, const SweepResult& sweep, const FileNames& names,
                    const std::string& which) const {
        const auto& recording = sweep.recording;
        if (!recording.samples.empty())
            sound(names.recording(which), recording.sampleRate, recording.samples);
        writeResponse(speaker, sweep.response, names, which);
    }

    void writeResponse(const Speaker& speaker, const ImpulseResponse& response,
                       const FileNames& names, const std::string& which) const {
        if (!isUsable(response))
            return;
        sound(names.impulseResponse(which), response.sampleRate, response.samples);
        text(names.response(which),
             responseText(response, displayName(speaker.name) + ", " + which));
    }

    void writeCorrection(const Speaker& speaker, const design::SpeakerCorrection& correction,
                         const FileNames& names) const {
        writeResponse(speaker, correction.predicted, names, FileNames::kPredicted);
        for (const auto& filter : correction.filters) {
            sound(names.filter(filter.sampleRate), filter.sampleRate,
                  filter.impulseResponse(kFilterLength));
            text(names.filterResponse(filter.sampleRate),
                 responseText(filter, displayName(speaker.name) + ", filter"));
        }
    }

    void makeFolder(const char* name) const {
        std::error_code error;
        fs::create_directory(staging_.path() / name, error);
        if (error)
            fail(name, error.message());
    }

    void removeEmptyFolders() const {
        std::error_code ignored;
        for (const auto* folder : {"recordings", "impulse-responses", "filters"})
            fs::remove(staging_.path() / folder, ignored);  // only where it is empty
    }

    void text(const std::string& name, const std::string& content) const {
        if (!Descriptor(staging_.path() / name).writeAll(content))
            fail(name, std::strerror(errno));
    }

    void sound(const std::string& name, double sampleRate, std::vector<double> samples) const {
        try {
            measurement::writeSoundFile(staging_.path() / name, {sampleRate, {std::move(samples)}});
        } catch (const std::runtime_error&) {
            fail(name, isDiskFull() ? std::strerror(ENOSPC) : "the system refused");
        }
    }

    bool isDiskFull() const {
        std::error_code error;
        const auto space = fs::space(staging_.path(), error);
        return !error && space.available < kFullDisk;
    }

    [[noreturn]] void fail(const std::string& name, const std::string& why) const {
        throw OutputError(shown(staging_.destination() / name) + ": cannot be written: " + why +
                          "; no report was made");
    }

    const Calibration& calibration_;
    const Staging& staging_;
};

void checkExisting(const fs::path& directory) {
    std::error_code error;
    if (!fs::is_directory(directory, error))
        throw BadInput(shown(directory) + ": is no folder; give another name");
    if (fs::equivalent(directory, ".", error))
        throw BadInput(shown(directory) + ": is the current folder; give a new one");
    const bool empty = fs::is_empty(directory, error);
    if (error)
        throw BadInput(shown(directory) + ": cannot be read: " + error.message());
    if (!empty)
        throw BadInput(shown(directory) + ": holds files already; give a new or an empty folder");
}

void checkParent(const fs::path& directory) {
    const fs::path parent = directory.parent_path();
    std::error_code error;
    if (!fs::is_directory(parent, error))
        throw BadInput(shown(directory) + ": the folder " + shown(parent) + " does not exist");
    if (access(parent.c_str(), W_OK | X_OK) != 0)
        throw BadInput(shown(directory) + ": cannot be made: " + std::strerror(errno));
}

void checkDesign(const Calibration& calibration) {
    const auto& design = calibration.design;
    if (design && design->speakers.size() != calibration.speakers.size())
        throw std::invalid_argument("the design is of other speakers than the calibration");
}

}  // namespace

void checkFolder(const fs::path& directory) {
    const fs::path folder = resolved(directory);
    std::error_code ignored;
    if (fs::exists(fs::symlink_status(folder, ignored)))
        checkExisting(folder);
    checkParent(folder);
}

void write(const Calibration& calibration, const fs::path& directory) {
    checkDesign(calibration);
    checkFolder(directory);
    Staging staging(resolved(directory));
    Writer(calibration, staging).writeAll();
    staging.publish();
}

}  // namespace calibrate::report
