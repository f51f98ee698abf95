#include "calibrate/Run.h"

#include "calibrate/Between.h"
#include "calibrate/Errors.h"
#include "calibrate/MicrophoneArguments.h"
#include "calibrate/Text.h"
#include "calibrate/TextTable.h"
#include "calibrate/report/Figures.h"
#include "calibrate/report/ReportFolder.h"
#include "calibrate/run/Calibrator.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <thread>

namespace calibrate {
namespace {

using run::Calibrator;
using run::Narrator;
using run::VerificationFailed;

constexpr const char* kFooter =
    "\nPut the microphone where you listen, and run:\n"
    "  vesk-calibrate run\n"
    "For example:\n"
    "  vesk-calibrate --device 192.168.1.20 run --positions 3 -o living-room\n"
    "  vesk-calibrate run --target house --microphone 7047870.txt --name Evening\n"
    "  vesk-calibrate run --slot 2 --force --json\n"
    "  vesk-calibrate run --mic hw:CARD=UMIK1  (a microphone of this machine)\n"
    "\nEach speaker plays a sweep of some seconds. Ctrl-C at any moment leaves the device as it "
    "was,\nbut for a filter that it has replaced already, and stimulus gains that were never set.";

/// Everything that can be wrong without the device, before it hears of us.
RunOptions completed(RunOptions options) {
    options.correction.system = systemOptions(options.correction);
    if (!options.folder) {
        std::string time = utcTime(std::chrono::duration_cast<std::chrono::milliseconds>(
                                       std::chrono::system_clock::now().time_since_epoch())
                                       .count());
        std::erase_if(time, [](char c) { return c == ':'; });
        options.folder = "calibration-" + time.substr(0, 10) + "-" + time.substr(11, 6);
    }
    report::checkFolder(*options.folder);
    return options;
}

/// The words with which the person is asked, or told, to move the microphone.
std::string instruction(std::size_t position, std::size_t count) {
    const std::string number = std::to_string(position + 1) + " of " + std::to_string(count);
    return position == 0 ? "Put the microphone where you listen, position " + number
                         : "Put the microphone at position " + number;
}

/// Waits until the microphone is where `words` say.
class Placement {
public:
    Placement(EndpointClient& client, const RunOptions& options, Narrator& narrator)
        : client_(client), options_(options), narrator_(narrator) {}

    /// False: the person does not want to go on.
    bool await(const std::string& words) {
        if (options_.positions == 1)
            return true;
        narrator_.end();
        if (options_.pause > 0)
            pause(words);
        else if (!options_.confirmed)
            return narrator_.console().confirm(words + ". Measure now?");
        return true;
    }

private:
    /// Looks at the device meanwhile: a stop request ends that call, and so the pause.
    void pause(const std::string& words) {
        using Clock = std::chrono::steady_clock;
        const std::chrono::duration<double> length(options_.pause);
        narrator_.tell("place", words + ".", {{"text", words}, {"pause_s", options_.pause}});
        narrator_.begin("waiting");
        const auto begin = Clock::now();
        for (auto elapsed = Clock::now() - begin; elapsed < length;
             elapsed = Clock::now() - begin) {
            client_.deviceInfo();
            narrator_.progress(elapsed / length, "waiting for the microphone's new place");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        narrator_.end();
    }

    EndpointClient& client_;
    const RunOptions& options_;
    Narrator& narrator_;
};

void printResult(const report::Calibration& calibration, const Console& console) {
    TextTable table({"Speaker", "Before", "Predicted", "Measured", "Delay", "Gain"});
    const auto level = [](const std::optional<double>& value) {
        return value ? fixed(*value, 2) + " dB" : std::string("-");
    };
    for (std::size_t i = 0; i < calibration.speakers.size(); ++i) {
        const auto figures = report::figures(calibration, i);
        const auto& alignment = calibration.design->speakers[i].alignment;
        table.add({printable(calibration.speakers[i].name), level(figures.deviationBefore),
                   level(figures.deviationPredicted), level(figures.deviationAfter),
                   fixed(1000 * alignment.delay, 2) + " ms", fixed(alignment.gain, 1) + " dB"});
    }
    console.out() << "Deviation from the target at 1/6 octave:\n";
    table.print(console.out(), "");
}

Json speakerJson(const report::Calibration& calibration, std::size_t index) {
    const auto figures = report::figures(calibration, index);
    const auto value = [](const std::optional<double>& number) {
        return number ? Json(*number) : Json();
    };
    const auto& alignment = calibration.design->speakers[index].alignment;
    return {{"name", calibration.speakers[index].name},
            {"deviation_before_db", value(figures.deviationBefore)},
            {"deviation_predicted_db", value(figures.deviationPredicted)},
            {"deviation_after_db", value(figures.deviationAfter)},
            {"difference_from_prediction_db", value(figures.difference)},
            {"delay_ms", 1000 * alignment.delay},
            {"gain_db", alignment.gain}};
}

void tellResult(const Calibrator& calibrator, const RunOptions& options, bool active,
                Narrator& narrator) {
    const auto& calibration = calibrator.calibration();
    const auto& console = narrator.console();
    narrator.end();
    if (!console.json() && !console.quiet())
        printResult(calibration, console);
    Json speakers = Json::array();
    for (std::size_t i = 0; i < calibration.speakers.size(); ++i)
        speakers.push_back(speakerJson(calibration, i));
    const std::string page = (*options.folder / "report.html").string();
    narrator.tell("done",
                  (active ? "Slot " + std::to_string(calibrator.slot()) + " is active. " : "") +
                      "Report: " + printable(page),
                  {{"slot", calibrator.slot()},
                   {"active", active},
                   {"report", page},
                   {"speakers", speakers}});
}

bool holdsMeasurements(const report::Calibration& calibration) {
    return std::ranges::any_of(calibration.speakers,
                               [](const auto& speaker) { return !speaker.positions.empty(); });
}

/// The answer to a question was no.
class StoppedByPerson : public Interrupted {
public:
    using Interrupted::Interrupted;
};

/// What was measured before a failure, for a look at what went wrong. The text tells where it is.
std::string partialReport(const report::Calibration& calibration, const RunOptions& options) {
    if (!holdsMeasurements(calibration))
        return "";
    try {
        report::Calibration part = calibration;
        if (part.design && part.design->speakers.size() != part.speakers.size())
            part.design.reset();
        report::write(part, *options.folder);
        return " What was measured is in " + printable(options.folder->string()) + ".";
    } catch (const std::exception&) {
        return "";
    }
}

void measureAll(Calibrator& calibrator, Placement& placement, const RunOptions& options) {
    for (std::size_t position = 0; position < options.positions; ++position) {
        if (!placement.await(instruction(position, options.positions)))
            throw StoppedByPerson("stopped at the microphone's position");
        calibrator.measurePosition(position);
    }
}

void finish(Calibrator& calibrator, Placement& placement, const RunOptions& options,
            Narrator& narrator) {
    calibrator.design();
    calibrator.activate();
    if (options.verify &&
        !placement.await("Put the microphone back at position 1, to verify the result")) {
        calibrator.leaveUnverified("the microphone was not put back");
    } else if (options.verify) {
        try {
            calibrator.verify();
        } catch (const VerificationFailed& failure) {
            report::write(calibrator.calibration(), *options.folder);
            calibrator.keepFilter();
            tellResult(calibrator, options, false, narrator);
            throw VerificationFailed(std::string(failure.what()) + " The filter stays in slot " +
                                     std::to_string(calibrator.slot()) +
                                     ", not in use; 'vesk-calibrate activate " +
                                     std::to_string(calibrator.slot()) + "' uses it all the same.");
        }
    }
    narrator.begin("writing the report");
    report::write(calibrator.calibration(), *options.folder);
    calibrator.commit();
    tellResult(calibrator, options, true, narrator);
}

}  // namespace

void addRunOptions(CLI::App& command, RunOptions& options) {
    command
        .add_option("-o,--output", options.folder, "New folder for the report; default: by time")
        ->type_name("DIR");
    command.add_option("--positions", options.positions, "Positions of the microphone; default: 1")
        ->type_name("N")
        ->check(between(1, 64));
    command.add_flag("--yes", options.confirmed, "Answer every question with yes");
    command
        .add_option("--pause", options.pause, "Seconds to move the microphone, instead of asking")
        ->type_name("S")
        ->check(between(0, 3600));
    command.add_option("--slot", options.slot, "Slot to fill, from 0; default: the first empty")
        ->type_name("N");
    command.add_flag("--force", options.force, "Replace the slot's filter without asking");
    command.add_option("--name", options.name, "Name in the menu; default: the time")
        ->type_name("TEXT");
    command.add_option("--description", options.description, "Free text")->type_name("TEXT");
    addMicrophoneOptions(command, options.microphone);
    command
        .add_option("--microphone", options.calibrationFile, "Calibration file of the microphone")
        ->type_name("FILE");
    command.add_option("--gain", options.gain, "Of the stimuli; default: found")
        ->type_name("DB")
        ->check(between(-200, 60));
    addCorrectionOptions(command, options.correction);
    command
        .add_option("--play", options.playCommand,
                    "Plays the sound file $FILE on the device, to verify the result")
        ->type_name("COMMAND");
    command.add_flag_callback(
        "--no-verify", [&options] { options.verify = false; }, "Do not measure the result");
    command.footer(kFooter);
}

void calibrateRoom(EndpointClient& client, const RunOptions& given, const Console& console) {
    const RunOptions options = completed(given);
    std::optional<measurement::MicrophoneCalibration> microphone;
    if (options.calibrationFile)
        microphone = measurement::readMicrophoneCalibration(*options.calibrationFile);
    Narrator narrator(console);
    Placement placement(client, options, narrator);
    Calibrator calibrator(client, options, microphone ? &*microphone : nullptr, narrator);
    try {
        measureAll(calibrator, placement, options);
        finish(calibrator, placement, options, narrator);
    } catch (const DeviceError& error) {
        throw DeviceError(error.reason(),
                          error.what() + partialReport(calibrator.calibration(), options));
    } catch (const BadInput& error) {
        throw BadInput(error.what() + partialReport(calibrator.calibration(), options));
    } catch (const OutputError& error) {
        throw OutputError(error.what() + partialReport(calibrator.calibration(), options));
    } catch (const StoppedByPerson& stop) {
        throw Interrupted(stop.what() + partialReport(calibrator.calibration(), options));
    }
}

}  // namespace calibrate
