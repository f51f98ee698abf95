#include "calibrate/Errors.h"
#include "calibrate/support/CommandFixture.h"
#include "support/Subprocess.h"

#include <gmock/gmock.h>

#include <csignal>

// The program itself: its signals, its streams and its exit code.

namespace calibrate {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class ProgramTest : public CommandFixture {
protected:
    std::vector<std::string> command(const std::vector<std::string>& arguments) const {
        std::vector<std::string> all{VESK_CALIBRATE, "--device", device_.address()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }

    std::vector<std::string> uploadCommand() const {
        return command({"upload", "--slot", "0", wav("a.wav", 48000, {{1, 0.5}, {1, 0.25}})});
    }

    /// A signal in the middle of a transfer.
    void expectNothingStoredAfter(int signal) {
        device_.hold("SetCellFIIR");
        Subprocess program(uploadCommand());
        device_.awaitHeld();
        program.signal(signal);

        const auto result = program.wait();
        EXPECT_EQ(result.exitCode, 128 + signal);
        EXPECT_THAT(result.errors, HasSubstr("interrupted; nothing was stored"));
        EXPECT_THAT(device_.stored(), IsEmpty());
    }
};

TEST_F(ProgramTest, UploadsAFilter) {
    const auto result = runProcess(uploadCommand());

    EXPECT_EQ(result.exitCode, kExitOk) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("Stored in slot 0 \"a\""));
    EXPECT_EQ(device_.stored().at(0).taps.at({1, 0}), (std::vector<float>{1, 0.25}));
}

TEST_F(ProgramTest, WritesErrorsAsOneLineToStandardError) {
    const auto result = runProcess({VESK_CALIBRATE, "--device", "127.0.0.1:1", "info"});

    EXPECT_EQ(result.exitCode, kExitDevice);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
}

TEST_F(ProgramTest, CtrlCEndsATransferAndNothingIsStored) {
    expectNothingStoredAfter(SIGINT);
}

TEST_F(ProgramTest, TerminationIsToldByTheExitCode) {
    device_.hold("GetDeviceInfo");
    Subprocess program(command({"info"}));
    device_.awaitHeld();
    program.signal(SIGTERM);

    EXPECT_EQ(program.wait().exitCode, 128 + SIGTERM);
}

TEST_F(ProgramTest, TheEndOfItsTerminalLeavesNothingHalfDone) {
    expectNothingStoredAfter(SIGHUP);
}

TEST_F(ProgramTest, AResultThatNobodyReadsIsAFailure) {
    for (const auto* const output : {"/dev/full", "| true"}) {
        const std::string to = *output == '/' ? std::string("> ") + output : output;
        const auto result =
            runProcess({"/bin/sh", "-c", "(sleep 0.2; \"$@\"; echo ended with $? >&2) " + to, "sh",
                        VESK_CALIBRATE, "--help"});
        EXPECT_THAT(result.errors, HasSubstr("standard output cannot be written")) << output;
        EXPECT_THAT(result.errors, HasSubstr("ended with 1")) << output;
    }
}

}  // namespace
}  // namespace calibrate
