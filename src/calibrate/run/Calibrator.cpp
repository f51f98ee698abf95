#include "calibrate/run/Calibrator.h"

#include "calibrate/GainRange.h"
#include "calibrate/Text.h"
#include "calibrate/run/VerificationCheck.h"

#include <algorithm>
#include <chrono>

namespace calibrate::run {
namespace {

using measurement::Verdict;

long long now() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

report::Calibration beginning(const DeviceProfile& profile, const RunOptions& options) {
    report::Calibration calibration;
    calibration.time = now();
    calibration.versions = {{"vesk-calibrate", VESK_VERSION}};
    const auto& device = profile.device;
    calibration.device = {printable(device.device_name()), printable(device.manufacturer()),
                          printable(device.model_name()), printable(device.uuid()),
                          options.address};
    calibration.microphone.name = profile.microphoneName;
    if (options.calibrationFile)
        calibration.microphone.calibration = options.calibrationFile->filename().string();
    calibration.target = options.correction.target;
    for (const auto& speaker : profile.speakers)
        calibration.speakers.push_back(
            {speaker.name, speaker.subwoofer ? "subwoofer" : "full range", {}, {}});
    return calibration;
}

std::vector<design::MeasuredSpeaker> measured(const report::Calibration& calibration,
                                              const DeviceProfile& profile) {
    std::vector<design::MeasuredSpeaker> speakers;
    for (std::size_t i = 0; i < profile.speakers.size(); ++i) {
        const auto& speaker = profile.speakers[i];
        design::MeasuredSpeaker all{speaker.name, speaker.subwoofer, speaker.group, {}};
        for (const auto& position : calibration.speakers[i].positions)
            all.positions.push_back(position.response);
        speakers.push_back(std::move(all));
    }
    return speakers;
}

std::optional<double> checked(std::optional<double> gain, const protocol::GainInfo& range) {
    if (gain)
        checkGain("--gain", *gain, range);
    return gain;
}

/// Asks before a filter is replaced.
int slotToFill(const DeviceProfile& profile, const RunOptions& options, Narrator& narrator) {
    const int slot = chooseSlot(profile, options.slot);
    const auto& present = profile.slots.slots.at(static_cast<std::size_t>(slot));
    if (options.force || options.confirmed || SlotTable::looksEmpty(present))
        return slot;
    const std::string holds =
        "Slot " + std::to_string(slot) + " holds \"" + printable(present.name()) + "\".";
    if (!narrator.console().confirm(holds + " Replace it?"))
        throw BadInput("slot " + std::to_string(slot) +
                       " stays as it is: choose another one with --slot");
    return slot;
}

/// Whether the device as a whole kept its correction off: some speakers tell, and none tells
/// otherwise.
bool isUncorrected(const std::vector<JudgedVerification>& speakers) {
    const auto tellsOtherwise = [](const JudgedVerification& speaker) {
        const bool isFailed = speaker.verification.verdict == Verdict::unusable;
        return speaker.path == Path::throughFilter || (isFailed && speaker.path == Path::unknown);
    };
    return std::ranges::find(speakers, Path::pastFilter, &JudgedVerification::path) !=
               speakers.end() &&
           std::ranges::none_of(speakers, tellsOtherwise);
}

Json json(const report::Verification& verification, const std::string& speaker) {
    return {{"speaker", speaker},
            {"verdict", measurement::verdictName(verification.verdict)},
            {"text", verification.text}};
}

}  // namespace

Calibrator::Calibrator(EndpointClient& client, const RunOptions& options,
                       const measurement::MicrophoneCalibration* microphone, Narrator& narrator)
    : client_(client),
      options_(options),
      narrator_(narrator),
      presence_(client),
      microphone_(openMicrophone(client, options.microphone)),
      profile_(readProfile(client, *microphone_)),
      slot_(slotToFill(profile_, options, narrator)),
      state_(client, warning()),
      gains_(client, warning()),
      recorder_(*microphone_, profile_, narrator),
      measurement_(recorder_, profile_, gains_, checked(options.gain, profile_.stimulusGain),
                   microphone, narrator),
      calibration_(beginning(profile_, options)) {
}

std::function<void(const std::string&)> Calibrator::warning() {
    return [this](const std::string& text) { narrator_.warn(text); };
}

void Calibrator::measurePosition(std::size_t position) {
    const std::string place = options_.positions == 1
                                  ? "the room"
                                  : "position " + std::to_string(position + 1) + " of " +
                                        std::to_string(options_.positions);
    auto results = measurement_.measure(place);
    const std::string problem = unusableText(results);
    add(std::move(results));
    if (!problem.empty())
        throw DeviceError(DeviceError::Reason::failed, problem);
}

void Calibrator::add(std::vector<report::SweepResult> results) {
    for (std::size_t i = 0; i < results.size(); ++i)
        calibration_.speakers[i].positions.push_back(std::move(results[i]));
}

design::SystemOptions Calibrator::systemOptions() const {
    auto system = options_.correction.system;
    system.capacities = profile_.capacities();
    system.alignmentCapacity = profile_.alignment;
    system.bassCapacity = profile_.bass;
    return system;
}

void Calibrator::design() {
    narrator_.begin("designing the filters");
    calibration_.options = systemOptions();
    const auto speakers = measured(calibration_, profile_);
    calibration_.design = design::designSystem(speakers, calibration_.options);
    narrator_.progress(1, "designing the filters");
    for (const auto& warning : calibration_.design->warnings)
        narrator_.warn(warning);
}

protocol::SlotInfo Calibrator::slotInfo() const {
    protocol::SlotInfo slot;
    slot.set_slot(slot_);
    const std::string time = utcTime(calibration_.time);
    slot.set_name(options_.name.value_or("Room " + time.substr(0, time.rfind(':'))));
    slot.set_filter_type_name("FIR with parallel sections");
    slot.set_description(!options_.description.empty()
                             ? options_.description
                             : counted(profile_.speakers.size(), "speaker") + ", " +
                                   counted(options_.positions, "position") + ", target " +
                                   printable(options_.correction.target));
    slot.set_creation_time(creationTime(profile_.slots.slots.at(static_cast<std::size_t>(slot_))));
    return slot;
}

void Calibrator::activate() {
    const auto slot = slotInfo();
    narrator_.begin("storing the filters");
    state_.fill(slot_);
    const auto design = design::deviceDesign(*calibration_.design);
    transfer(
        client_, slot, transferSteps(design, profile_.filters),
        [&](double fraction, const std::string& step) { narrator_.progress(fraction, step); },
        true);
    checkStored(client_, slot);
    calibration_.slot = static_cast<unsigned>(slot_);
    calibration_.slotName = slot.name();
    state_.change();
    chooseActiveSlot(client_, slot_);
    switchCorrection(client_, true);
    narrator_.tell("stored",
                   "The filters are in slot " + std::to_string(slot_) + ", \"" +
                       printable(slot.name()) + "\".",
                   {{"slot", slot_}, {"name", slot.name()}});
}

/// A device switches its correction off when a stimulus begins, so that stimuli alone may never
/// pass the filter: a sound file that is played like music does. Without one there is still a way
/// on devices that take a change of the mode during a stimulus: correction is off before, and is
/// switched on during a first sweep that does not count.
std::vector<report::SweepResult> Calibrator::measureThroughFilter() {
    if (options_.playCommand)
        return measurement_.measureFile("verifying", *options_.playCommand);
    switchCorrection(client_, false);
    auto results = measurement_.measureAgain("verifying", [&] { switchCorrection(client_, true); });
    switchCorrection(client_, true);
    return results;
}

void Calibrator::verify() {
    auto results = measureThroughFilter();
    std::vector<JudgedVerification> judged;
    judged.reserve(results.size());
    for (std::size_t i = 0; i < results.size(); ++i) {
        judged.push_back(judge(std::move(results[i]), calibration_.speakers[i].positions.front(),
                               calibration_.design->speakers[i]));
        calibration_.speakers[i].verification = judged.back().verification;
    }
    if (isUncorrected(judged) && !options_.playCommand) {
        for (auto& speaker : calibration_.speakers)
            speaker.verification.reset();
        leaveUnverified(
            "this device keeps its correction off while it plays stimuli. With --play a command "
            "that plays a sound file on it verifies the result");
        return;
    }
    conclude();
}

void Calibrator::leaveUnverified(const std::string& why) {
    calibration_.warnings.push_back("The result is not verified: " + why + ".");
    narrator_.warn(calibration_.warnings.back());
}

void Calibrator::conclude() {
    std::string problems;
    for (const auto& speaker : calibration_.speakers) {
        const auto& verification = *speaker.verification;
        narrator_.tell("verified", "", json(verification, speaker.name));
        if (verification.verdict == Verdict::poor)
            narrator_.warn(verification.text);
        if (verification.verdict == Verdict::unusable)
            problems += (problems.empty() ? "" : " ") + verification.text;
    }
    if (!problems.empty())
        throw VerificationFailed(problems);
}

}  // namespace calibrate::run
