#include "calibrate/Upload.h"

#include "calibrate/Activate.h"
#include "calibrate/DeviceQuery.h"
#include "calibrate/FilterCapacity.h"
#include "calibrate/FilterDesign.h"
#include "calibrate/JsonOutput.h"
#include "calibrate/Text.h"
#include "calibrate/Transfer.h"

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

protocol::SlotInfo describe(const UploadOptions& options, const protocol::SlotInfo& present) {
    protocol::SlotInfo slot;
    slot.set_slot(options.slot);
    slot.set_name(options.name.value_or(printable(pathsOf(options).front().stem().string())));
    slot.set_filter_type_name(options.type);
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

void describeDesign(const FilterDesign& design, const protocol::DeviceInfo& device,
                    const Console& console) {
    console.note(printable(device.device_name()) + ", " +
                 counted(device.num_speakers(), "speaker") + ":");
    for (const auto& variant : design.variants) {
        console.note("  " + hertz(variant.variant.sampleRate) + ": " +
                     counted(longest(variant), "tap") + ", " + conversionText(variant));
    }
    for (const auto& warning : design.warnings)
        console.warn(warning);
}

void noteReplacement(int slot, const protocol::SlotInfo& present, const Console& console) {
    if (!SlotTable::looksEmpty(present)) {
        console.note("Slot " + std::to_string(slot) + " holds \"" + printable(present.name()) +
                     "\", which is replaced.");
    }
}

void reportStored(const protocol::SlotInfo& slot, bool active, const FilterDesign& design,
                  const Names& names, const Console& console) {
    const std::string number = std::to_string(slot.slot());
    console.report("Stored in slot " + number + " \"" + printable(slot.name()) + "\"" +
                       (active ? ", which is active."
                               : "; 'vesk-calibrate activate " + number + "' puts it to use."),
                   {{"slot", slot.slot()},
                    {"name", slot.name()},
                    {"creation_time", slot.creation_time()},
                    {"active", active},
                    {"variants", toJson(design, names)}});
}

}  // namespace

void upload(EndpointClient& client, const UploadOptions& options, const Console& console) {
    auto files = readFiles(options);
    const auto device = client.deviceInfo();
    checkSlot(options.slot, device);
    const Names names = readSpeakerNames(client, device);
    const auto variants = readVariants(client, names.size());
    for (const auto& file : files)
        checkCapacity(file, variants);
    const auto speakers = mapFiles(options, std::move(files), names);
    const FilterDesign design = designFilters(speakers, names, variants);
    describeDesign(design, device, console);
    const auto present = client.slotInfo(options.slot);
    noteReplacement(options.slot, present, console);
    const auto slot = describe(options, present);
    {
        auto progress = console.progressBar();
        transfer(client, slot, design, names, progress);
    }
    checkStored(client, slot);
    const bool active = afterStoring(options.slot, [&] { return isActive(client, options); });
    reportStored(slot, active, design, names, console);
}

}  // namespace calibrate
