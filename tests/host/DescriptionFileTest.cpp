#include "host/DescriptionFile.h"
#include "host/PlainName.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>

namespace host {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

json completeDocument() {
    return json::parse(R"({
        "manufacturer": "Maker", "deviceName": "Room", "productShortName": "Xy",
        "uuidNamespace": "6ba7b810-9dad-11d1-80b4-00c04fd430c8",
        "ethernetMac": "aa:bb:cc:dd:ee:0F",
        "speakers": [{"name": "L", "type": 0, "group": 3}, {"name": "Sub", "type": 4, "group": 1}],
        "microphones": ["Mic A", "Mic B"],
        "numberOfSlots": 5, "stimuliSampleRate": 44100, "stimuliChannels": 6, "ipcKey": -7,
        "micDeviceName": "hw:1", "micRecordSampleRate": 96000, "disableShmUpdate": true,
        "volumeMap": [-60.5, -20, 0],
        "playbackDeviceName": "hw:2",
        "resources": {"microphone": {"behaviour": "refused", "errorName": "Broken",
                                     "errorText": "It is broken"}},
        "stateDirectory": "some/where", "listenAddress": "::1",
        "log": {"level": "DEBUG", "file": "device.log"}
    })");
}

class DescriptionFileTest : public testing::Test {
protected:
    std::string file() const { return (scratch_.path() / "device.json").string(); }

    void write(const std::string& text) { std::ofstream(file()) << text; }

    HostDescription read(const json& document) {
        write(document.dump());
        return readDescription(file());
    }

    void expectRefused(const std::function<void(json&)>& change, const std::string& message) {
        json document = completeDocument();
        change(document);
        expectRefusedText(document.dump(), message);
    }

    void expectRefusedText(const std::string& text, const std::string& message) {
        write(text);
        try {
            readDescription(file());
            FAIL() << "accepted: " << text;
        } catch (const DescriptionError& error) {
            EXPECT_THAT(error.what(), HasSubstr(file() + ": " + message));
            EXPECT_THAT(error.what(), testing::Not(HasSubstr("\n")));
        }
    }

    const ScratchDirectory scratch_;
};

TEST_F(DescriptionFileTest, ReadsEveryKey) {
    const auto description = read(completeDocument());
    const auto& device = description.device;
    EXPECT_EQ(device.manufacturer, "Maker");
    EXPECT_EQ(device.deviceName, "Room");
    EXPECT_EQ(device.productShortName, "Xy");
    EXPECT_EQ(device.uuidNamespace, "6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    EXPECT_EQ(device.ethernetMac, "aa:bb:cc:dd:ee:0F");
    ASSERT_EQ(device.speakers.size(), 2);
    EXPECT_EQ(device.speakers[0].groupId, 3U);
    EXPECT_EQ(device.speakers[1].name, "Sub");
    EXPECT_EQ(device.speakers[1].type, 4U);
    EXPECT_EQ(device.microphones, QStringList({"Mic A", "Mic B"}));
    EXPECT_EQ(device.numberOfSlots, 5U);
    EXPECT_EQ(device.stimuliSampleRate, 44100);
    EXPECT_EQ(device.stimuliChannels, 6U);
    EXPECT_EQ(device.ipcKey, -7);
    EXPECT_EQ(device.micDeviceName, "hw:1");
    EXPECT_EQ(device.micRecordSampleRate, 96000);
    EXPECT_TRUE(device.disableShmUpdate);
    EXPECT_THAT(device.volumeMap, ElementsAre(-60.5, -20, 0));
    EXPECT_EQ(device.playbackDeviceName, "hw:2");
    ASSERT_EQ(device.resources.size(), 1);
    EXPECT_EQ(device.resources[0].name, "microphone");
    EXPECT_EQ(device.resources[0].behaviour, platform::ResourceBehaviour::Refused);
    EXPECT_EQ(device.resources[0].errorName, "Broken");
    EXPECT_EQ(device.resources[0].errorText, "It is broken");
    EXPECT_EQ(device.stateDirectory, "some/where");
    EXPECT_EQ(device.listenAddress, "::1");
    EXPECT_EQ(description.log.level, "DEBUG");
    EXPECT_EQ(description.log.file, "device.log");
}

TEST_F(DescriptionFileTest, OptionalKeysHaveDefaults) {
    json document = completeDocument();
    for (const char* key : {"stimuliChannels", "disableShmUpdate", "playbackDeviceName",
                            "resources", "stateDirectory", "listenAddress", "log"})
        document.erase(key);
    const auto description = read(document);
    EXPECT_EQ(description.device.stimuliChannels, std::nullopt);
    EXPECT_FALSE(description.device.disableShmUpdate);
    EXPECT_EQ(description.device.playbackDeviceName, "");
    EXPECT_TRUE(description.device.resources.empty());
    EXPECT_EQ(description.device.stateDirectory, "state");
    EXPECT_EQ(description.device.listenAddress, "0.0.0.0");
    EXPECT_EQ(description.log.level, "INFO");
    EXPECT_EQ(description.log.file, "");
}

TEST_F(DescriptionFileTest, EachRequiredKeyIsMissed) {
    for (const char* key :
         {"manufacturer", "deviceName", "productShortName", "uuidNamespace", "ethernetMac",
          "speakers", "microphones", "numberOfSlots", "stimuliSampleRate", "ipcKey",
          "micDeviceName", "micRecordSampleRate", "volumeMap"})
        expectRefused([&](json& document) { document.erase(key); },
                      "/" + std::string(key) + ": this key is missing");
}

TEST_F(DescriptionFileTest, EachKeyOfASpeakerIsMissed) {
    for (const char* key : {"name", "type", "group"})
        expectRefused([&](json& document) { document["speakers"][1].erase(key); },
                      "/speakers/1/" + std::string(key) + ": this key is missing");
}

TEST_F(DescriptionFileTest, UnknownKeysAreRefused) {
    expectRefused([](json& document) { document["colour"] = "red"; },
                  "/colour: this key is not known");
    expectRefused([](json& document) { document["speakers"][0]["groupId"] = 1; },
                  "/speakers/0/groupId: this key is not known");
    expectRefused([](json& document) { document["log"]["colour"] = true; },
                  "/log/colour: this key is not known");
    expectRefused([](json& document) { document["a/b"] = 1; }, "/a~1b: this key is not known");
}

TEST_F(DescriptionFileTest, AResourceMayHaveAHolderOrNeverAnswer) {
    json document = completeDocument();
    auto& microphone = document["resources"]["microphone"];
    microphone = {{"behaviour", "granted"}, {"holder", "Assistant"}};
    const auto held = read(document).device.resources[0];
    EXPECT_EQ(held.behaviour, platform::ResourceBehaviour::Granted);
    EXPECT_EQ(held.holder, "Assistant");
    EXPECT_EQ(json::parse(descriptionText(read(document))), document);
    microphone = {{"behaviour", "silent"}};
    EXPECT_EQ(read(document).device.resources[0].behaviour, platform::ResourceBehaviour::Silent);
    EXPECT_EQ(json::parse(descriptionText(read(document))), document);
}

TEST_F(DescriptionFileTest, EachBehaviourOfAResourceHasItsOwnKeys) {
    const auto describe = [](const json& microphone) {
        return [microphone](json& document) { document["resources"]["microphone"] = microphone; };
    };
    expectRefused(describe({{"behaviour", "silent"}, {"holder", "X"}}),
                  "/resources/microphone/holder: this key is not known");
    expectRefused(describe({{"behaviour", "granted"}, {"errorName", "X"}}),
                  "/resources/microphone/errorName: this key is not known");
    expectRefused(describe({{"behaviour", "refused"}, {"errorText", "X"}}),
                  "/resources/microphone/errorName: this key is missing");
    expectRefused(describe(json::object()), "/resources/microphone/behaviour: this key is missing");
}

TEST_F(DescriptionFileTest, PrintedTextIsADescriptionAgain) {
    const auto text = descriptionText(read(completeDocument()));
    EXPECT_EQ(json::parse(text), completeDocument());
    write(text);
    EXPECT_EQ(descriptionText(readDescription(file())), text);
}

TEST_F(DescriptionFileTest, MissingFileIsNamed) {
    EXPECT_THAT([&] { readDescription(file()); },
                testing::ThrowsMessage<DescriptionError>(
                    file() + ": cannot be opened: No such file or directory"));
}

TEST_F(DescriptionFileTest, WhatIsNotJsonIsRefused) {
    expectRefusedText("{\"manufacturer\": ", "not a JSON document: ");
    expectRefusedText("", "not a JSON document: ");
    expectRefusedText("{\"manufacturer\": \"\xff\"}", "not a JSON document: ");
    expectRefusedText("[1, 2]", "the document: expected an object, found [1,2]");
}

TEST_F(DescriptionFileTest, KeysMayNotAppearTwice) {
    expectRefusedText(R"({"ipcKey": 1, "ipcKey": 2})",
                      "not a JSON document: the key \"ipcKey\" appears twice");
    write(R"({"speakers": [{"name": "A"}, {"name": "B"}]})");
    EXPECT_THAT([&] { readDescription(file()); },
                testing::ThrowsMessage<DescriptionError>(HasSubstr("/manufacturer")));
}

struct WrongValue {
    const char* pointer;
    json value;
    const char* expected;
};

void PrintTo(const WrongValue& wrong, std::ostream* out) {
    *out << plainName(wrong.pointer + wrong.value.dump().substr(0, 40) + " " + wrong.expected);
}

json list(std::size_t length, const json& element) {
    return json(length, element);
}

class WrongDescription : public DescriptionFileTest,
                         public testing::WithParamInterface<WrongValue> {};

TEST_P(WrongDescription, IsRefusedWithPlaceAndExpectation) {
    const auto& wrong = GetParam();
    expectRefused(
        [&](json& document) { document[json::json_pointer(wrong.pointer)] = wrong.value; },
        std::string(wrong.pointer) + ": expected " + wrong.expected);
}

const json kSpeaker{{"name", "S"}, {"type", 0}, {"group", 0}};

INSTANTIATE_TEST_SUITE_P(
    Each, WrongDescription,
    testing::Values(
        WrongValue{"/manufacturer", 3, "a text, found 3"},
        WrongValue{"/manufacturer", "", "a text that is not empty"},
        WrongValue{"/deviceName", nullptr, "a text, found null"},
        WrongValue{"/productShortName", "", "a text that is not empty"},
        WrongValue{"/uuidNamespace", "6ba7b810-9dad-11d1-80b4", "a UUID such as"},
        WrongValue{"/uuidNamespace", "6ba7b810-9dad-11d1-80b4-00c04fd430cg", "a UUID such as"},
        WrongValue{"/uuidNamespace", "{6ba7b810-9dad-11d1-80b4-00c04fd430c8}", "a UUID such as"},
        WrongValue{"/ethernetMac", "aa-bb-cc-dd-ee-ff", "a MAC address such as"},
        WrongValue{"/ethernetMac", "aa:bb:cc:dd:ee", "a MAC address such as"},
        WrongValue{"/ethernetMac", "aa:bb:cc:dd:ee:fg", "a MAC address such as"},
        WrongValue{"/ethernetMac", 5, "a text, found 5"},
        WrongValue{"/speakers", "L", "a list, found \"L\""},
        WrongValue{"/speakers", json::array(), "a list with a length from 2 to 10, found 0"},
        WrongValue{"/speakers", list(1, kSpeaker), "a list with a length from 2 to 10, found 1"},
        WrongValue{"/speakers", list(11, kSpeaker),
                   "a list with a length from 2 to 10, found 11 elements"},
        WrongValue{"/speakers/0", "L", "an object, found \"L\""},
        WrongValue{"/speakers/0/name", "", "a text that is not empty"},
        WrongValue{"/speakers/0/type", "sub", "an integer from 0 to 2147483647, found \"sub\""},
        WrongValue{"/speakers/0/type", -1, "an integer from 0 to 2147483647, found -1"},
        WrongValue{"/speakers/1/group", 1.5, "an integer from 0 to 2147483647, found 1.5"},
        WrongValue{"/microphones", 1, "a list, found 1"},
        WrongValue{"/microphones/1", "", "a text that is not empty"},
        WrongValue{"/numberOfSlots", 0, "an integer from 1 to 256, found 0"},
        WrongValue{"/numberOfSlots", 257, "an integer from 1 to 256, found 257"},
        WrongValue{"/numberOfSlots", "8", "an integer from 1 to 256, found \"8\""},
        WrongValue{"/stimuliSampleRate", 7999, "an integer from 8000 to 192000, found 7999"},
        WrongValue{"/stimuliSampleRate", 192001, "an integer from 8000 to 192000, found 192001"},
        WrongValue{"/stimuliSampleRate", 48000.5, "an integer from 8000 to 192000"},
        WrongValue{"/stimuliChannels", 1, "an integer from 2 to 64, found 1"},
        WrongValue{"/stimuliChannels", 65, "an integer from 2 to 64, found 65"},
        WrongValue{"/ipcKey", 2147483648, "an integer from -2147483648 to 2147483647"},
        WrongValue{"/ipcKey", 18446744073709551615ULL, "an integer from -2147483648"},
        WrongValue{"/ipcKey", true, "an integer from -2147483648 to 2147483647, found true"},
        WrongValue{"/micDeviceName", 0, "a text, found 0"},
        WrongValue{"/micRecordSampleRate", 0, "an integer from 8000 to 192000, found 0"},
        WrongValue{"/disableShmUpdate", 1, "true or false, found 1"},
        WrongValue{"/volumeMap", json::array(), "a list with a length from 1 to 10000, found 0"},
        WrongValue{"/volumeMap", -60, "a list, found -60"},
        WrongValue{"/volumeMap/1", "x", "a number, found \"x\""},
        WrongValue{"/volumeMap/1", -70, "a volume in dB, above the one before it and at most 0"},
        WrongValue{"/volumeMap/2", 1, "a volume in dB, above the one before it and at most 0"},
        WrongValue{"/playbackDeviceName", 1, "a text, found 1"},
        WrongValue{"/resources", json::array(), "an object, found []"},
        WrongValue{"/resources/microphone", true, "an object, found true"},
        WrongValue{"/resources/microphone/behaviour", "loud",
                   "\"granted\", \"refused\" or \"silent\", found \"loud\""},
        WrongValue{"/resources/microphone/errorName", "", "a text that is not empty"},
        WrongValue{"/stateDirectory", "", "a text that is not empty"},
        WrongValue{"/listenAddress", "localhost", "an IP address, found \"localhost\""},
        WrongValue{"/listenAddress", "127.0.0.1:5002", "an IP address"},
        WrongValue{"/log", "INFO", "an object, found \"INFO\""},
        WrongValue{"/log/level", "info", "OFF, FATAL, ERROR, WARN, INFO, DEBUG or TRACE"},
        WrongValue{"/log/file", false, "a text, found false"},
        WrongValue{"/deviceName", list(100, 7), "a text, found [7,7,7,7,7,7,7,7,7,7,7,7"}));

TEST(ReadyMadeDescriptions, DescribeTheirDevices) {
    const auto speakers = [](const char* name) {
        return readDescription(std::string(VESK_DEVICES "/") + name).device.speakers;
    };
    const auto subwoofers = [](const QList<platform::Speaker>& all) {
        return std::count_if(all.begin(), all.end(),
                             [](const auto& speaker) { return speaker.type == 4; });
    };
    EXPECT_EQ(speakers("stereo.json").size(), 2);
    EXPECT_EQ(subwoofers(speakers("stereo.json")), 0);
    EXPECT_EQ(speakers("stereo-sub.json").size(), 3);
    EXPECT_EQ(subwoofers(speakers("stereo-sub.json")), 1);
    EXPECT_EQ(speakers("ten-channel.json").size(), 10);
    EXPECT_EQ(subwoofers(speakers("ten-channel.json")), 1);
}

}  // namespace
}  // namespace host
