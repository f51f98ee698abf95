#include "calibrate/report/ReportFolder.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/TextFile.h"
#include "calibrate/design/DesignFiles.h"
#include "calibrate/measurement/SoundFile.h"
#include "calibrate/report/Curves.h"
#include "calibrate/report/FileNames.h"
#include "calibrate/report/ReportJson.h"
#include "calibrate/report/ReportPage.h"
#include "calibrate/report/ResponseText.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace calibrate::report {
namespace {

namespace fs = std::filesystem;
using measurement::ImpulseResponse;

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

/// Writes all files of a calibration below a folder.
class Writer {
public:
    Writer(const Calibration& calibration, const Staging& staging)
        : calibration_(calibration), staging_(staging) {}

    void writeAll() const {
        for (const auto* folder : {"recordings", "impulse-responses", "responses"})
            makeFolder(folder);
        std::vector<SpeakerFigures> all;
        for (std::size_t i = 0; i < calibration_.speakers.size(); ++i) {
            writeSpeaker(i);
            all.push_back(figures(calibration_, i));
        }
        text(kTargetFile,
             responseText(calibration_.options.correction.target, "Target " + calibration_.target));
        writeFilters();
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
            writeResponse(speaker, correction->predicted, names, FileNames::kPredicted);
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

    void writeFilters() const {
        if (!calibration_.design)
            return;
        std::vector<std::string> names;
        for (std::size_t i = 0; i < calibration_.speakers.size(); ++i)
            names.push_back(FileNames(i, calibration_.speakers[i].name).stem());
        design::writeFilters(staging_.path() / kFiltersFolder, *calibration_.design, names);
    }

    void makeFolder(const char* name) const {
        std::error_code error;
        fs::create_directory(staging_.path() / name, error);
        if (error)
            throw WriteError(staging_.path() / name, error.message());
    }

    void removeEmptyFolders() const {
        std::error_code ignored;
        for (const auto* folder : {"recordings", "impulse-responses"})
            fs::remove(staging_.path() / folder, ignored);  // only where it is empty
    }

    void text(const std::string& name, const std::string& content) const {
        writeTextFile(staging_.path() / name, content);
    }

    void sound(const std::string& name, double sampleRate, std::vector<double> samples) const {
        measurement::writeSoundFile(staging_.path() / name, {sampleRate, {std::move(samples)}});
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
    try {
        Writer(calibration, staging).writeAll();
    } catch (const WriteError& error) {
        const auto name = error.path().lexically_relative(staging.path());
        throw OutputError(shown(staging.destination() / name) +
                          ": cannot be written: " + error.reason() + "; no report was made");
    }
    staging.publish();
}

}  // namespace calibrate::report
