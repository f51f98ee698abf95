#include "support/ScratchDirectory.h"
#include "support/Subprocess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

/// A device with the test's own plug-in, started in its working directory.
class Device {
public:
    Device(const std::string& workingDirectory, const std::string& state)
        : process_({VESK_HOST, "--worker", VESK_TEST_PLUGIN, "--state-dir", state,
                    VESK_DEVICES "/stereo.json"},
                   workingDirectory) {
        EXPECT_THAT(process_.readLine().value_or(""), HasSubstr("veskd: ready"));
    }

    void kill() {
        process_.signal(SIGKILL);
        process_.wait();
    }
    void stop() {
        process_.signal(SIGTERM);
        EXPECT_EQ(process_.wait().exitCode, 0);
    }

private:
    Subprocess process_;
};

class TreeToolTest : public testing::Test {
protected:
    Words command(Words arguments) const {
        arguments.insert(arguments.begin(), VESK_TREE);
        return arguments;
    }
    ProcessResult tool(const Words& arguments, const Words& environment = {}) const {
        return runProcess(command(arguments), home(), environment);
    }
    std::string home() const { return scratch_.path().string(); }

    void expectOutput(const Words& arguments, const std::string& output) const {
        const auto result = tool(arguments);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.output, output);
        EXPECT_THAT(result.errors, IsEmpty());
    }
    void expectFailure(const Words& arguments, int exitCode, const std::string& message) const {
        const auto result = tool(arguments);
        EXPECT_EQ(result.exitCode, exitCode);
        EXPECT_THAT(result.output, IsEmpty());
        EXPECT_THAT(result.errors, HasSubstr("vesk-tree: " + message));
    }

    const ScratchDirectory scratch_;
};

class TreeToolWithDevice : public TreeToolTest {
protected:
    Device device_{home(), "state"};
};

TEST_F(TreeToolWithDevice, ListsAsATable) {
    const auto result = tool({"list", "test/"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, AllOf(ContainsRegex("test/choice +i32 +Test +-1\n"),
                                     ContainsRegex("test/choices +rows +Test +4 rows\n"),
                                     ContainsRegex("test/echo +action +Test"),
                                     testing::Not(HasSubstr("device/name"))));
}

TEST_F(TreeToolWithDevice, ListsAsJson) {
    const auto nodes = json::parse(tool({"list", "--json"}).output);
    const auto found = std::find_if(nodes.begin(), nodes.end(), [](const auto& node) {
        return node["path"] == "player/volumeMap";
    });
    ASSERT_NE(found, nodes.end());
    EXPECT_EQ((*found)["value"], "22 elements");
}

TEST_F(TreeToolWithDevice, GetsAValue) {
    expectOutput({"get", "device/name"}, "Living Room\n");
    expectOutput({"get", "--json", "device/name"}, "\"Living Room\"\n");
    expectOutput({"get", "test/choice"}, "-1\n");
    expectOutput({"get", "test/choices"}, "-1\toff\n3\tFilter: Sofa\n5\tTwin\n6\tTwin\n");
    EXPECT_EQ(json::parse(tool({"get", "--json", "player/volumeMap"}).output).size(), 22U);
}

TEST_F(TreeToolWithDevice, WhatHasNoValueCannotBeGot) {
    expectFailure({"get", "test/empty"}, 1, "\"test/empty\" has no value yet\n");
    expectFailure({"get", "test/echo"}, 1, "\"test/echo\" is an action: run it with invoke\n");
    expectFailure({"get", "no/where"}, 1, "there is no node \"no/where\"\n");
}

TEST_F(TreeToolWithDevice, SetsValuesThatLookLikeOptions) {
    expectOutput({"set", "system/attenuation", "-3.5"}, "");
    expectOutput({"get", "system/attenuation"}, "-3.5\n");
    expectOutput({"set", "test/choice", "-1"}, "");
}

TEST_F(TreeToolWithDevice, SetsListsRecordsAndTexts) {
    expectOutput({"set", "player/volumeMap", "[-60, 0]"}, "");
    expectOutput({"get", "player/volumeMap"}, "[-60.0,0.0]\n");
    expectOutput({"set", "player/data", R"({"state": 2})"}, "");
    expectOutput({"get", "player/data"}, "{\"state\":2}\n");
    expectOutput({"set", "device/name", "Garden [shed], \"north\""}, "");
    expectOutput({"get", "device/name"}, "Garden [shed], \"north\"\n");
    expectOutput({"set", "device/name", ""}, "");
    expectOutput({"get", "device/name"}, "\n");
}

TEST_F(TreeToolWithDevice, AWholeRecordGoesOutAndInAgain) {
    const auto config = json::parse(tool({"get", "--json", "dirac/config"}).output);
    auto changed = config;
    changed["numberOfSlots"] = 3;
    expectOutput({"set", "dirac/config", changed.dump()}, "");
    EXPECT_EQ(json::parse(tool({"get", "--json", "dirac/config"}).output), changed);
}

TEST_F(TreeToolWithDevice, MakesAChoiceByItsTitle) {
    expectOutput({"set", "test/choice", "Filter: Sofa"}, "");
    expectOutput({"get", "test/choice"}, "3\n");
    expectOutput({"set", "test/choice", "off"}, "");
    expectOutput({"get", "test/choice"}, "-1\n");
}

TEST_F(TreeToolWithDevice, TheWordsOfTheValidatorComeBack) {
    expectFailure({"set", "test/choice", "13"}, 1, "Unlucky number\n");
    expectOutput({"get", "test/choice"}, "-1\n");
}

TEST_F(TreeToolWithDevice, AWrongValueIsRefused) {
    expectFailure({"set", "system/attenuation", "loud"}, 1, "not JSON: \"loud\"\n");
    expectFailure({"set", "dirac/config", "{}"}, 1, "/speakers: this field is missing\n");
}

TEST_F(TreeToolWithDevice, SetsANodeWithoutValueByType) {
    expectOutput({"set", "--type", "double", "test/empty", "5"}, "");
    expectOutput({"get", "test/empty"}, "5.0\n");
}

TEST_F(TreeToolWithDevice, RunsActions) {
    expectOutput({"invoke", "test/echo", R"({"a": [1, 2]})"}, "{\"a\":[1,2]}\n");
    expectOutput({"invoke", "test/echo"}, "{}\n");
    expectFailure({"invoke", "test/fail"}, 1, "Out of order\n");
    expectFailure({"invoke", "test/echo", "[1]"}, 1, "expected an object, found [1]\n");
}

TEST_F(TreeToolWithDevice, WatchesPrefixesLineByLine) {
    Subprocess watch(command({"watch", "--present", "--count", "3", "system/", "test/choice"}),
                     home());
    EXPECT_EQ(watch.readLine(), R"({"path":"system/attenuation","type":"double","value":0.0})");
    EXPECT_EQ(watch.readLine(), R"({"path":"system/manufacturer","type":"string","value":"Vesk"})");
    EXPECT_EQ(watch.readLine(), R"({"path":"test/choice","type":"i32","value":-1})");
    EXPECT_EQ(watch.wait().exitCode, 0);
}

TEST_F(TreeToolWithDevice, WatchSeesChanges) {
    Subprocess watch(command({"watch", "--present", "test/choice"}), home());
    EXPECT_EQ(watch.readLine(), R"({"path":"test/choice","type":"i32","value":-1})");
    EXPECT_EQ(watch.readLine(), R"({"path":"test/choices","rows":[)"
                                R"({"title":"off","type":101,"value":-1},)"
                                R"({"title":"Filter: Sofa","type":101,"value":3},)"
                                R"({"title":"Twin","type":101,"value":5},)"
                                R"({"title":"Twin","type":101,"value":6}]})");
    expectOutput({"set", "device/name", "Elsewhere"}, "");
    expectOutput({"set", "test/choice", "5"}, "");
    EXPECT_EQ(watch.readLine(), R"({"path":"test/choice","type":"i32","value":5})");
    watch.signal(SIGINT);
    EXPECT_EQ(watch.wait().exitCode, -SIGINT);
}

TEST_F(TreeToolWithDevice, WatchEndsWithTheDevice) {
    Subprocess watch(command({"watch", "--present", "system/manufacturer"}), home());
    ASSERT_TRUE(watch.readLine());
    device_.stop();
    const auto end = watch.wait();
    EXPECT_EQ(end.exitCode, 3);
    EXPECT_THAT(end.errors, HasSubstr("the device ends"));
}

TEST_F(TreeToolTest, WithoutADeviceItIsUnreachable) {
    expectFailure({"list"}, 3, "no device runs in ./, ./state/ or a directory below ./state/");
    expectFailure({"--socket", "none.sock", "list"}, 3, "none.sock: no device answers: ");
    expectFailure({"--state-dir", "none", "list"}, 3, "none/control.sock: no device answers: ");
}

TEST_F(TreeToolTest, APathThatIsTooLongForASocketIsNamed) {
    const std::string path(108, 'x');
    expectFailure({"--socket", path, "list"}, 3, path + ": the path is too long for a socket");
}

TEST_F(TreeToolTest, FindsADeviceBelowState) {
    const Device device(home(), "state/stereo");
    expectOutput({"get", "test/choice"}, "-1\n");
}

TEST_F(TreeToolTest, FindsADeviceInTheWorkingDirectory) {
    const Device device(home(), ".");
    expectOutput({"get", "test/choice"}, "-1\n");
}

TEST_F(TreeToolTest, FindsADeviceByOptionOrEnvironment) {
    const Device device(home(), "elsewhere");
    expectOutput({"--state-dir", "elsewhere", "get", "test/choice"}, "-1\n");
    expectOutput({"get", "test/choice", "--socket", "elsewhere/control.sock"}, "-1\n");
    EXPECT_EQ(tool({"get", "test/choice"}, {"VESK_STATE_DIR=elsewhere"}).output, "-1\n");
}

TEST_F(TreeToolTest, WillNotChooseBetweenTwoDevices) {
    const Device first(home(), "state/a");
    const Device second(home(), "state/b");
    expectFailure({"list"}, 3,
                  "several devices run here, name one with --socket: "
                  "state/a/control.sock state/b/control.sock\n");
}

TEST_F(TreeToolTest, ADeviceThatWasKilledIsNotInTheWay) {
    Device first(home(), "state/a");
    const Device second(home(), "state/b");
    first.kill();
    ASSERT_TRUE(std::filesystem::exists(home() + "/state/a/control.sock"));
    expectOutput({"get", "test/choice"}, "-1\n");
    expectFailure({"--state-dir", "state/a", "list"}, 3,
                  "state/a/control.sock: no device answers: ");
}

TEST_F(TreeToolTest, HelpHasExamples) {
    const auto result = tool({"--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, AllOf(HasSubstr("Examples:"), HasSubstr("Exit codes:")));
}

TEST_F(TreeToolTest, WrongUsageEndsWithTwo) {
    const std::vector<Words> wrong{{},
                                   {"paint"},
                                   {"list", "--colour"},
                                   {"list", "a", "b"},
                                   {"get"},
                                   {"set", "a"},
                                   {"watch", "--count", "0"},
                                   {"invoke"},
                                   {"list", "--socket", "a", "--state-dir", "b"}};
    for (const auto& words : wrong) {
        const auto result = tool(words);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_THAT(result.errors, HasSubstr("Usage:"));
        EXPECT_THAT(result.output, IsEmpty());
    }
}

}  // namespace
