#include "support/Eventually.h"
#include "support/ScratchDirectory.h"
#include "support/Subprocess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/shm.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kStereo = VESK_DEVICES "/stereo.json";

/// One frame of mono, 8 bits, 8 kHz.
const std::string kSilentWav(
    "RIFF\x25\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x40\x1f\0\0\1\0\x08\0"
    "data\1\0\0\0\x80",
    45);

bool segmentExists() {
    return shmget(1234, 0, 0) >= 0;
}

/// A line for the shell that replaces itself by the command.
std::string shellLine(const std::vector<std::string>& words) {
    std::string line = "exec";
    for (const auto& word : words)
        line += " '" + word + "'";
    return line;
}

/// Whether the process has begun to handle a signal that was sent to it.
bool hasTaken(const Subprocess& process, int signal) {
    std::ifstream status("/proc/" + std::to_string(process.id()) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("ShdPnd:"))
            return (std::stoull(line.substr(7), nullptr, 16) & (1ULL << (signal - 1))) == 0;
    return false;
}

class VeskdTest : public testing::Test {
protected:
    std::string scratch(const std::string& name) const { return (scratch_.path() / name).string(); }

    std::vector<std::string> command(const std::vector<std::string>& arguments,
                                     const std::string& state) const {
        std::vector<std::string> all{VESK_HOST, "--state-dir", state, "--listen", "127.0.0.1"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    /// With the test's own plug-in, which needs no port and no segment.
    std::vector<std::string> testDevice(std::vector<std::string> arguments = {},
                                        const std::string& state = "state") const {
        arguments.insert(arguments.end(), {"--worker", VESK_TEST_PLUGIN, kStereo});
        return command(arguments, scratch(state));
    }
    std::vector<std::string> realDevice(std::vector<std::string> arguments = {},
                                        const std::string& state = "state") const {
        arguments.insert(arguments.end(), {"--worker", VESK_MODULE, kStereo});
        return command(arguments, scratch(state));
    }

    /// A device whose worker is not made before releaseWorker().
    std::vector<std::string> waitingDevice() const {
        fs::create_directory(scratch("state"));
        EXPECT_EQ(mkfifo(scratch("state/hold").c_str(), 0600), 0);
        return command({"--worker", VESK_TEST_PLUGIN_WAITING, kStereo}, scratch("state"));
    }
    void releaseWorker() const { std::ofstream(scratch("state/hold")) << "go"; }

    std::string controlSocket() const { return scratch("state/control.sock"); }

    void expectReady(Subprocess& device) const {
        EXPECT_EQ(device.readLine(), "veskd: ready, control socket " + controlSocket());
    }

    void expectCleanEnd(Subprocess& device, int signal) const {
        device.signal(signal);
        const auto end = device.wait();
        EXPECT_EQ(end.exitCode, 0) << end.errors;
        EXPECT_FALSE(fs::exists(controlSocket()));
    }

    void expectFailure(const std::vector<std::string>& words, const std::string& message,
                       int exitCode = 1) const {
        const auto end = runProcess(words, scratch_.path().string());
        EXPECT_EQ(end.exitCode, exitCode);
        EXPECT_THAT(end.errors, HasSubstr("veskd: " + message));
        EXPECT_THAT(end.output, IsEmpty());
    }

    const ScratchDirectory scratch_;
};

TEST_F(VeskdTest, SaysThatItIsReadyAndEndsWithEachSignal) {
    for (const int signal : {SIGINT, SIGTERM}) {
        Subprocess device(testDevice());
        expectReady(device);
        expectCleanEnd(device, signal);
    }
}

TEST_F(VeskdTest, ASignalDuringTheStartEndsItOnceItHasStarted) {
    Subprocess device(waitingDevice());
    device.awaitError("Starting the worker");
    device.signal(SIGTERM);
    releaseWorker();
    expectReady(device);
    EXPECT_EQ(device.wait().exitCode, 0);
}

TEST_F(VeskdTest, ASecondSignalEndsItAtOnce) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer delays signals while the worker's thread waits";
#endif
    Subprocess device(waitingDevice());
    device.awaitError("Starting the worker");
    device.signal(SIGINT);
    EXPECT_TRUE(eventually([&] { return hasTaken(device, SIGINT); }));
    device.signal(SIGINT);
    EXPECT_EQ(device.wait().exitCode, 128 + SIGINT);
}

TEST_F(VeskdTest, TheWorkerIsDestroyedInItsThreadAndTheStateDirectoryIsItsOwn) {
    Subprocess device(testDevice());
    expectReady(device);
    expectCleanEnd(device, SIGTERM);
    std::string thread;
    std::ifstream(scratch("state/worker-ended")) >> thread;
    EXPECT_EQ(thread, "libvesk_test_plugin");
}

TEST_F(VeskdTest, TheStateDirectoryIsForItsUserOnly) {
    Subprocess device(testDevice({}, "state"));
    expectReady(device);
    struct stat status {};
    ASSERT_EQ(stat(scratch("state").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    ASSERT_EQ(stat(controlSocket().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(VeskdTest, NamesWatchedPathsThatNothingProvides) {
    Subprocess device(testDevice());
    expectReady(device);
    device.signal(SIGTERM);
    EXPECT_THAT(device.wait().errors,
                HasSubstr("WARN  veskd: Nothing provides the watched path test/nobodyProvides"));
}

TEST_F(VeskdTest, ASecondInstanceOverTheSameStateIsRefused) {
    Subprocess device(testDevice());
    expectReady(device);
    const auto second = runProcess(testDevice({"--control", scratch("other.sock")}));
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_THAT(second.errors, AllOf(HasSubstr(scratch("state")), HasSubstr("another process")));
    EXPECT_TRUE(fs::exists(controlSocket()));
    expectCleanEnd(device, SIGTERM);
}

TEST_F(VeskdTest, ASecondInstanceOnTheSameSocketIsRefused) {
    Subprocess device(testDevice());
    expectReady(device);
    expectFailure(testDevice({"--control", controlSocket()}, "other"),
                  controlSocket() + ": the control socket is served by another process");
    expectCleanEnd(device, SIGTERM);
}

TEST_F(VeskdTest, StartsAgainAfterItWasKilled) {
    {
        Subprocess device(testDevice());
        expectReady(device);
        device.signal(SIGKILL);
        EXPECT_EQ(device.wait().exitCode, -SIGKILL);
    }
    EXPECT_TRUE(fs::is_socket(controlSocket()));
    Subprocess device(testDevice());
    expectReady(device);
    expectCleanEnd(device, SIGTERM);
}

TEST_F(VeskdTest, TellsAFileDescriptorThatItIsReady) {
    const std::string fifo = scratch("ready");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Subprocess device({"/bin/sh", "-c", shellLine(testDevice({"--ready-fd", "5"})) + " 5>" + fifo});
    std::string told;
    std::ifstream(fifo) >> told;
    EXPECT_EQ(told, "ready");
    expectCleanEnd(device, SIGTERM);
}

TEST_F(VeskdTest, AnUnusableReadyDescriptorIsAnError) {
    const auto end = runProcess(testDevice({"--ready-fd", "77"}));
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.errors, HasSubstr("veskd: --ready-fd: Bad file descriptor"));
}

TEST_F(VeskdTest, LivesOnWhenNobodyReadsItsOutput) {
    const std::string fifo = scratch("output");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Subprocess device({"/bin/sh", "-c", shellLine(testDevice()) + " >" + fifo});
    // The shell waits for a reader; the device finds none any more.
    std::ifstream(fifo).close();
    const std::vector<std::string> get{VESK_TREE, "--socket", controlSocket(), "get",
                                       "test/choice"};
    EXPECT_TRUE(eventually([&] { return runProcess(get).output == "-1\n"; }));
    expectCleanEnd(device, SIGTERM);
}

TEST_F(VeskdTest, LogsToAFile) {
    Subprocess device(testDevice({"--log-file", scratch("device.log")}));
    expectReady(device);
    device.signal(SIGTERM);
    EXPECT_THAT(device.wait().errors, IsEmpty());
    std::ifstream log(scratch("device.log"));
    const std::string text{std::istreambuf_iterator<char>(log), {}};
    EXPECT_THAT(
        text, testing::ContainsRegex("[0-9-]+ [0-9:.]+ INFO  veskd: Starting the worker of .*\n"));
}

TEST_F(VeskdTest, KeepsQuietAboveItsLogLevel) {
    Subprocess device(testDevice({"--log-level", "ERROR"}));
    expectReady(device);
    device.signal(SIGTERM);
    EXPECT_THAT(device.wait().errors, IsEmpty());
}

TEST_F(VeskdTest, ALogThatCannotBeWrittenIsNamed) {
    expectFailure(testDevice({"--log-file", scratch("no/such/file")}),
                  scratch("no/such/file") + ": the log cannot be written: No such file");
}

TEST_F(VeskdTest, AStateDirectoryThatCannotBeUsedIsNamed) {
    std::ofstream(scratch("file")) << "content";
    expectFailure(testDevice({}, "file"),
                  scratch("file") + ": the state directory cannot be entered: Not a directory");
    expectFailure(testDevice({}, "file/below"),
                  scratch("file/below") + ": the state directory cannot be made: Not a directory");
}

TEST_F(VeskdTest, AControlPathThatIsTooLongIsNamed) {
    const auto deep = std::string(120, 'd');
    expectFailure(testDevice({}, deep), scratch(deep) +
                                            "/control.sock: the control socket cannot "
                                            "have this path");
    fs::create_directory(scratch("state"));
    Subprocess device(testDevice({"--control", controlSocket()}, deep));
    expectReady(device);
    expectCleanEnd(device, SIGTERM);
}

TEST_F(VeskdTest, PlaysASoundFileOfTheUsersDirectory) {
    std::ofstream(scratch("sound.wav"), std::ios::binary) << kSilentWav;
    Subprocess device(testDevice({"--play", "sound.wav"}), scratch_.path().string());
    expectReady(device);
    device.awaitError("Playing file://" + scratch("sound.wav"));
    expectCleanEnd(device, SIGTERM);
}

TEST_F(VeskdTest, ASoundFileThatDoesNotExistIsWrongUsage) {
    expectFailure(testDevice({"--play", "nothing.wav"}), "--play: File does not exist: nothing.wav",
                  2);
}

TEST_F(VeskdTest, AWrongDescriptionIsRefusedBeforeAnythingStarts) {
    std::ofstream(scratch("wrong.json")) << R"({"manufacturer": 5})";
    expectFailure(command({"wrong.json"}, scratch("state")),
                  "wrong.json: /manufacturer: expected a text, found 5\n");
    EXPECT_FALSE(fs::exists(scratch("state")));
}

TEST_F(VeskdTest, AMissingDescriptionIsNamed) {
    expectFailure(command({"none.json"}, scratch("state")),
                  "none.json: cannot be opened: No such file or directory\n");
}

TEST_F(VeskdTest, AMissingPluginIsNamed) {
    expectFailure(command({"--worker", "none.so", kStereo}, scratch("state")),
                  "none.so: there is no such worker plug-in\n");
}

TEST_F(VeskdTest, APluginThatFailsEndsTheOthersInOrder) {
    const auto end = runProcess(
        command({"--worker", VESK_TEST_PLUGIN, "--worker", VESK_TEST_PLUGIN_FAILING, kStereo},
                scratch("state")));
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.errors, HasSubstr(": the worker cannot be made: no such weather\n"));
    EXPECT_TRUE(fs::exists(scratch("state/worker-ended")));
    EXPECT_FALSE(fs::exists(controlSocket()));
}

TEST_F(VeskdTest, PrintsTheDescriptionWithItsDefaults) {
    const auto end = runProcess({VESK_HOST, "--print-description", "--listen", "::1", kStereo},
                                scratch_.path().string());
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_THAT(end.output,
                AllOf(HasSubstr("\"deviceName\": \"Living Room\""),
                      HasSubstr("\"listenAddress\": \"::1\""), HasSubstr("\"level\": \"INFO\"")));
    EXPECT_FALSE(fs::exists(scratch("state")));
}

TEST_F(VeskdTest, TheCommandLineChoosesTheSoundDevices) {
    const auto end = runProcess({VESK_HOST, "--print-description", "--playback", "plug:room",
                                 "--microphone", "hw:3", kStereo},
                                scratch_.path().string());
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_THAT(end.output, AllOf(HasSubstr("\"playbackDeviceName\": \"plug:room\""),
                                  HasSubstr("\"micDeviceName\": \"hw:3\"")));
}

TEST_F(VeskdTest, HelpHasExamples) {
    const auto end = runProcess({VESK_HOST, "--help"});
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_THAT(end.output, AllOf(HasSubstr("Examples:"), HasSubstr("Exit codes:")));
}

TEST_F(VeskdTest, WrongUsageEndsWithTwo) {
    const std::vector<std::vector<std::string>> wrong{{},
                                                      {"--colour", kStereo},
                                                      {kStereo, "second.json"},
                                                      {"--log-level", "loud", kStereo},
                                                      {"--listen", "here", kStereo},
                                                      {"--ready-fd", "-1", kStereo},
                                                      {"--worker"}};
    for (auto words : wrong) {
        words.insert(words.begin(), VESK_HOST);
        const auto end = runProcess(words, scratch_.path().string());
        EXPECT_EQ(end.exitCode, 2);
        EXPECT_THAT(end.errors, HasSubstr("Usage:"));
        EXPECT_THAT(end.output, IsEmpty());
    }
}

TEST_F(VeskdTest, TheModuleRunsAndItsSegmentGoesAtTheEnd) {
    Subprocess device(realDevice());
    expectReady(device);
    device.awaitError("Dirac started listening on port: 5002");
    EXPECT_TRUE(segmentExists());
    expectCleanEnd(device, SIGTERM);
    EXPECT_FALSE(segmentExists());
}

TEST_F(VeskdTest, AllPathsThatTheModuleWatchesAreProvided) {
    Subprocess device(realDevice());
    expectReady(device);
    device.awaitError("Dirac started listening on port: 5002");
    device.signal(SIGTERM);
    EXPECT_THAT(device.wait().errors, Not(HasSubstr("Nothing provides")));
}

TEST_F(VeskdTest, ATakenPortLeavesTheDeviceRunning) {
    Subprocess first(realDevice());
    expectReady(first);
    first.awaitError("Dirac started listening on port: 5002");
    Subprocess second(realDevice({}, "second"));
    second.awaitError("DIRAC CAN NOT START SERVER");
    EXPECT_EQ(runProcess({VESK_TREE, "--state-dir", scratch("second"), "get", "dirac/activeFilter"})
                  .output,
              "-1\n");
    second.signal(SIGTERM);
    EXPECT_EQ(second.wait().exitCode, 0);
    EXPECT_TRUE(segmentExists());
    expectCleanEnd(first, SIGTERM);
    EXPECT_FALSE(segmentExists());
}

TEST_F(VeskdTest, FindsTheModuleOfItsBuild) {
    Subprocess device(command({kStereo}, scratch("state")));
    expectReady(device);
    expectCleanEnd(device, SIGTERM);
}

}  // namespace
