#include "calibrate/CommandLine.h"
#include "calibrate/Errors.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>

namespace calibrate {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kVerbs[] = {"info",  "upload", "slots", "activate", "rename", "delete",
                                  "gains", "mode",   "sweep", "noise",    "record", "watch"};

class CommandLineTest : public CommandFixture {
protected:
    /// Expects that the arguments are refused by one line that says what to do, and that the device
    /// hears nothing of it.
    void expectRefused(const std::vector<std::string>& arguments, const std::string& saying) {
        EXPECT_EQ(run(arguments), kExitUsage) << arguments.front();
        EXPECT_THAT(errors(), AllOf(StartsWith("vesk-calibrate: "), HasSubstr(saying)));
        EXPECT_EQ(errors().find('\n'), errors().size() - 1);
        EXPECT_EQ(output(), "");
        EXPECT_THAT(device_.calls(), IsEmpty());
    }
};

TEST_F(CommandLineTest, HelpGoesToStandardOutput) {
    EXPECT_EQ(runBare({"--help"}), kExitOk);
    for (const char* verb : kVerbs) {
        EXPECT_THAT(output(), HasSubstr(verb));
        EXPECT_EQ(errors(), "");
    }
}

TEST_F(CommandLineTest, EveryVerbHasHelp) {
    for (const char* verb : kVerbs) {
        EXPECT_EQ(runBare({verb, "--help"}), kExitOk);
        EXPECT_THAT(output(), HasSubstr(std::string("vesk-calibrate ") + verb));
    }
}

TEST_F(CommandLineTest, TellsItsVersion) {
    EXPECT_EQ(runBare({"--version"}), kExitOk);
    EXPECT_THAT(output(), StartsWith("vesk-calibrate "));
}

TEST_F(CommandLineTest, AVerbIsNeeded) {
    EXPECT_EQ(runBare({}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("--help"));
}

TEST_F(CommandLineTest, AnUnknownVerbOrOptionIsRefused) {
    expectRefused({"measure"}, "\"measure\" is neither a verb nor an option");
    expectRefused({"info", "--loud"}, "--loud");
    expectRefused({"slots", "extra"}, "extra");
}

TEST_F(CommandLineTest, MissingArgumentsAreRefused) {
    expectRefused({"upload", "a.wav"}, "--slot");
    expectRefused({"upload", "--slot", "1"}, "FILES or --speaker");
    expectRefused({"activate"}, "SLOT");
    expectRefused({"rename", "1"}, "--name");
    expectRefused({"rename", "--name", "x"}, "SLOT");
    expectRefused({"delete"}, "SLOT");
}

TEST_F(CommandLineTest, WrongValuesAreRefused) {
    expectRefused({"--timeout", "0", "info"}, "--timeout");
    expectRefused({"--timeout", "nan", "info"}, "--timeout");
    expectRefused({"activate", "first"}, "\"first\"");
    expectRefused({"activate", "99999999999"}, "99999999999");
    expectRefused({"delete", "one"}, "one");
    expectRefused({"upload", "--slot", "1", "--gain", "nan", "a.wav"}, "--gain");
    expectRefused({"upload", "--slot", "1", "--channels", "0", "a.raw"}, "--channels");
    expectRefused({"upload", "--slot", "1", "--speaker", "left"}, "--speaker");
}

TEST_F(CommandLineTest, WrongValuesOfAMeasurementAreRefused) {
    expectRefused({"sweep", "--gain", "nan"}, "--gain");
    expectRefused({"sweep", "--start-in", "-1"}, "--start-in");
    expectRefused({"sweep", "--duration", "1"}, "--duration");
    expectRefused({"noise", "--duration", "0"}, "--duration");
    expectRefused({"record"}, "OUT.wav");
    expectRefused({"record", "a.wav", "--stimulus", "song"}, "song");
    expectRefused({"record", "a.wav", "--gain", "-3"}, "--stimulus");
    expectRefused({"gains", "--speaker", "0"}, "--stimulus");
    expectRefused({"mode", "--correction", "maybe"}, "maybe");
    expectRefused({"watch", "--count", "0"}, "--count");
}

TEST_F(CommandLineTest, FilesAndSpeakersExcludeEachOther) {
    expectRefused({"upload", "--slot", "1", "--speaker", "0=a.wav", "b.wav"}, "excludes");
}

TEST_F(CommandLineTest, TextsThatASlotCannotHoldAreRefused) {
    expectRefused({"rename", "1", "--name", "a\nb"}, "control character");
    expectRefused({"rename", "1", "--description", "\xFF"}, "UTF-8");
    expectRefused({"upload", "--slot", "1", "--name", "\x1b", "a.wav"}, "control character");
}

TEST_F(CommandLineTest, TheDevicesAddressIsChecked) {
    EXPECT_EQ(runBare({"--device", "here:there", "info"}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("here:there"));
}

TEST_F(CommandLineTest, OptionsOfTheDeviceMayFollowTheVerb) {
    EXPECT_EQ(runBare({"slots", "--json", "--device", device_.address()}), kExitOk);
    EXPECT_THAT(output(), StartsWith("{"));
}

TEST_F(CommandLineTest, AnAddressWithoutADeviceIsTold) {
    EXPECT_EQ(runBare({"--device", "127.0.0.1:1", "--timeout", "5", "info"}), kExitDevice);
    EXPECT_THAT(errors(), AllOf(HasSubstr("no device answers at 127.0.0.1:1"),
                                HasSubstr("check the address")));
    EXPECT_EQ(output(), "");
}

TEST_F(CommandLineTest, ADeviceThatDoesNotAnswerIsGivenUp) {
    device_.hold("GetDeviceInfo");

    EXPECT_EQ(run({"--timeout", "0.2", "info"}), kExitDevice);
    EXPECT_THAT(errors(), AllOf(HasSubstr("GetDeviceInfo"), HasSubstr("within 0.2 s")));
}

TEST_F(CommandLineTest, AServerOfAnotherKindIsTold) {
    device_.lack("GetDeviceInfo");

    EXPECT_EQ(run({"info"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("no calibration endpoint"));
}

TEST_F(CommandLineTest, TheDevicesTextIsShownWithTheMethod) {
    device_.fail("GetActiveSlot", {grpc::StatusCode::INTERNAL, "out of\x1b[31m order"});

    EXPECT_EQ(run({"slots"}), kExitDevice);
    EXPECT_EQ(errors(), "vesk-calibrate: GetActiveSlot: the device says: out of?[31m order\n");
}

TEST_F(CommandLineTest, AStopThatWasRequestedEndsTheCommand) {
    stop_.request_stop();

    EXPECT_EQ(run({"info"}), kExitInterrupted);
    EXPECT_THAT(errors(), EndsWith("interrupted\n"));
    EXPECT_THAT(device_.calls(), IsEmpty());
}

}  // namespace
}  // namespace calibrate
