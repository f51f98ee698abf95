#include "calibrate/Upload.h"

#include "calibrate/Activate.h"
#include "calibrate/DesignFit.h"
#include "calibrate/DeviceQuery.h"
#include "calibrate/FilterCapacity.h"
#include "calibrate/FilterDesign.h"
#include "calibrate/JsonOutput.h"
#include "calibrate/Text.h"
#include "calibrate/Transfer.h"
#include "calibrate/design/DesignJson.h"
#include "calibrate/run/DesignTransfer.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace calibrate {
namespace {

using Names = std::vector<std::string>;

// ---- Files --------------------------------------------------------------------------------------

/// The files in the order of the command line; those of --speaker come last.
std::vector<std::filesystem::path> pathsOf(const UploadOptions& options) {
    auto paths = options.files;
    for (const auto& speaker : options.speakers)
        paths.push_back(speaker.path);
    return paths;
}

void amplify(FilterFile& file, double gain) {
    const double factor = std::pow(10, gain / 20);
    for (auto& channel : file.channels) {
        for (auto& tap : channel) {
            tap *= factor;
            if (std::abs(tap) > static_cast<double>(std::numeric_limits<float>::max())) {
                throw BadInput(file.name() + ": --gain " + fixed(gain, 1) +
                               " makes its taps too large");
            }
        }
    }
}

std::vector<FilterFile> readFiles(const UploadOptions& options) {
    const auto paths = pathsOf(options);
    if (options.gains.size() > 1 && options.gains.size() != paths.size()) {
        throw BadInput(counted(options.gains.size(), "gain") + " for " +
                       counted(paths.size(), "file") + ": give one for all, or one for each");
    }
    std::vector<FilterFile> files;
    files.reserve(paths.size());
    for (const auto& path : paths)
        files.push_back(readFilterFile(path, options.format));
    for (std::size_t i = 0; i < files.size() && !options.gains.empty(); ++i)
        amplify(files[i], options.gains[options.gains.size() == 1 ? 0 : i]);
    return files;
}

std::vector<SpeakerFilters> mapFiles(const UploadOptions& options, std::vector<FilterFile> files,
                                     const Names& names) {
    if (options.speakers.empty())
        return mapInOrder(files, names);
    std::vector<SpeakerAssignment> assignments;
    for (std::size_t i = 0; i < options.speakers.size(); ++i) {
        const auto& argument = options.speakers[i];
        assignments.push_back({argument.speaker, std::move(files[i]), argument.channel});
    }
    return mapAssigned(assignments, names);
}

// ---- Device -------------------------------------------------------------------------------------

/// The variants of the speakers' filters, the same for each speaker.
std::vector<Variant> readVariants(EndpointClient& client, std::size_t speakers) {
    std::vector<Variant> variants;
    for (const auto& info : readFilterVariants(client, speakers))
        variants.push_back(
            {info.variant(), static_cast<double>(info.sample_rate()), info.max_taps()});
    return variants;
}

// ---- Slot ---------------------------------------------------------------------------------------

protocol::SlotInfo describe(const UploadOptions& options, const std::string& type,
                            const protocol::SlotInfo& present) {
    protocol::SlotInfo slot;
    slot.set_slot(options.slot);
    slot.set_name(options.name.value_or(printable(pathsOf(options).front().stem().string())));
    slot.set_filter_type_name(options.type.value_or(type));
    slot.set_description(options.description);
    slot.set_creation_time(creationTime(present));
    return slot;
}

/// Runs `step`; an error of it says that the filter itself has arrived.
template <class Step>
auto afterStoring(int slot, Step step) {
    const std::string stored = "the filter is stored in slot " + std::to_string(slot) + ", but ";
    try {
        return step();
    } catch (const DeviceError& error) {
        throw DeviceError(error.reason(), stored + error.what());
    } catch (const Interrupted& interrupted) {
        throw Interrupted(stored + interrupted.what());
    }
}

bool isActive(EndpointClient& client, const UploadOptions& options) {
    if (options.activate)
        activateSlot(client, options.slot);
    return client.activeSlot() == options.slot;
}

// ---- Words --------------------------------------------------------------------------------------

std::size_t longest(const VariantDesign& design) {
    std::size_t taps = 0;
    for (const auto& speaker : design.taps)
        taps = std::max(taps, speaker.size());
    return taps;
}

std::string conversionText(const VariantDesign& design) {
    if (!design.conversion)
        return "as in the files";
    const auto& conversion = *design.conversion;
    std::string text = "resampled from";
    for (const double rate : conversion.fromRates)
        text += ' ' + hertz(rate);
    text += ", within " + fixed(conversion.deviation, 4) + " dB up to " +
            hertz(std::round(conversion.bandEdge));
    if (conversion.delay > 0) {
        text += ", every speaker " +
                fixed(1000 * static_cast<double>(conversion.delay) / design.variant.sampleRate, 2) +
                " ms later";
    }
    return text;
}

std::string variantText(const VariantDesign& variant) {
    return "  " + hertz(variant.variant.sampleRate) + ": " + counted(longest(variant), "tap") +
           ", " + conversionText(variant);
}

std::string variantText(const design::ParallelFilter& filter) {
    return "  " + hertz(filter.sampleRate) + ": " + counted(filter.taps.size(), "tap") + " and " +
           counted(filter.sections.size(), "section") + ", as in the file";
}

void noteReplacement(int slot, const protocol::SlotInfo& present, const Console& console) {
    if (!SlotTable::looksEmpty(present)) {
        console.note("Slot " + std::to_string(slot) + " holds \"" + printable(present.name()) +
                     "\", which is replaced.");
    }
}

/// The same keys as for files.
Json variantsJson(const design::DeviceDesign& design,
                  const std::vector<protocol::FIIRInfo>& variants, const Names& names) {
    Json list = Json::array();
    for (std::size_t i = 0; i < variants.size(); ++i) {
        Json speakers = Json::array();
        for (std::size_t k = 0; k < names.size(); ++k) {
            const auto& filter = design.speakers[k].filters[i];
            speakers.push_back({{"speaker", names[k]},
                                {"taps", filter.taps.size()},
                                {"sections", filter.sections.size()}});
        }
        list.push_back({{"variant", variants[i].variant()},
                        {"sample_rate_hz", variants[i].sample_rate()},
                        {"speakers", speakers},
                        {"resampled", nullptr}});
    }
    return list;
}

// ---- The two kinds of content -------------------------------------------------------------------

/// Puts steps into the slot, whatever they send.
class Upload {
public:
    Upload(EndpointClient& client, const UploadOptions& options, const Console& console)
        : client_(client), options_(options), console_(console) {}

    /// Asks the device who it is, and whether it has the slot.
    void begin() {
        device_ = client_.deviceInfo();
        checkSlot(options_.slot, device_);
    }

    const protocol::DeviceInfo& device() const { return device_; }

    void describeDevice() const {
        console_.note(printable(device_.device_name()) + ", " +
                      counted(device_.num_speakers(), "speaker") + ":");
    }

    /// `type` names the filters unless the user does; `variants` tells programs what is in them.
    void store(const std::vector<TransferStep>& steps, const std::string& type,
               const Json& variants) {
        const auto present = client_.slotInfo(options_.slot);
        noteReplacement(options_.slot, present, console_);
        const auto slot = describe(options_, type, present);
        {
            auto progress = console_.progressBar();
            transfer(client_, slot, steps, [&](double fraction, const std::string& step) {
                progress.update(fraction, step);
            });
        }
        checkStored(client_, slot);
        const bool active =
            afterStoring(options_.slot, [&] { return isActive(client_, options_); });
        report(slot, active, variants);
    }

private:
    void report(const protocol::SlotInfo& slot, bool active, const Json& variants) const {
        const std::string number = std::to_string(slot.slot());
        console_.report("Stored in slot " + number + " \"" + printable(slot.name()) + "\"" +
                            (active ? ", which is active."
                                    : "; 'vesk-calibrate activate " + number + "' puts it to use."),
                        {{"slot", slot.slot()},
                         {"name", slot.name()},
                         {"creation_time", slot.creation_time()},
                         {"active", active},
                         {"variants", variants}});
    }

    EndpointClient& client_;
    const UploadOptions& options_;
    const Console& console_;
    protocol::DeviceInfo device_;
};

void uploadFiles(EndpointClient& client, const UploadOptions& options, const Console& console) {
    auto files = readFiles(options);
    Upload upload(client, options, console);
    upload.begin();
    const Names names = readSpeakerNames(client, upload.device());
    const auto variants = readVariants(client, names.size());
    for (const auto& file : files)
        checkCapacity(file, variants);
    const auto speakers = mapFiles(options, std::move(files), names);
    const FilterDesign design = designFilters(speakers, names, variants);
    upload.describeDevice();
    for (const auto& variant : design.variants)
        console.note(variantText(variant));
    for (const auto& warning : design.warnings)
        console.warn(warning);
    upload.store(transferSteps(design, names), "FIR", toJson(design, names));
}

void scale(design::DeviceDesign& design, const std::vector<double>& gains,
           const std::string& file) {
    if (gains.size() > 1)
        throw BadInput(file + ": a design is one file, which takes one --gain");
    for (auto& speaker : design.speakers) {
        for (auto& filter : speaker.filters) {
            if (!gains.empty())
                filter.scale(std::pow(10, gains.front() / 20));
            if (!filter.isStable())
                throw BadInput(file + ": --gain makes its coefficients too large");
        }
    }
}

/// An alignment that the device does not use is a design that sounds wrong.
void checkAlignmentIsOn(EndpointClient& client, const Console& console) {
    const auto mode = ifOffered([&] { return client.operationMode(); });
    if (mode && !(mode->gain() && mode->delay())) {
        console.warn(
            "the device says that its gain and delay are off, which the design's alignment needs: "
            "'vesk-calibrate mode --gain-delay on' switches them on");
    }
}

void uploadDesign(EndpointClient& client, const UploadOptions& options, const Console& console) {
    const auto path = pathsOf(options).front();
    const std::string file = printable(path.string());
    if (pathsOf(options).size() > 1 || !options.speakers.empty())
        throw BadInput(file + ": a design holds the filters of all speakers; give it alone");
    auto design = design::readDesign(path);
    scale(design, options.gains, file);
    Upload upload(client, options, console);
    upload.begin();
    const auto capacity = readDesignCapacity(client, upload.device());
    std::vector<std::string> warnings;
    design = fitted(std::move(design), file, capacity, warnings);
    upload.describeDevice();
    for (const auto& filter : design.speakers.front().filters)
        console.note(variantText(filter));
    for (const auto& warning : warnings)
        console.warn(warning);
    std::vector<protocol::FIIRInfo> variants;
    for (const auto& variant : capacity.variants)
        variants.push_back(variant.filter);
    Names names;
    for (const auto& speaker : capacity.speakers)
        names.push_back(speaker.name());
    upload.store(run::transferSteps(design, variants), "FIR with parallel sections",
                 variantsJson(design, variants, names));
    checkAlignmentIsOn(client, console);
}

bool isDesign(const std::filesystem::path& path) {
    return path.extension() == ".json";
}

}  // namespace

void upload(EndpointClient& client, const UploadOptions& options, const Console& console) {
    if (std::ranges::any_of(pathsOf(options), isDesign))
        uploadDesign(client, options, console);
    else
        uploadFiles(client, options, console);
}

}  // namespace calibrate
