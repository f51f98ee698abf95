#include "host/PlainName.h"
#include "host/ValueJson.h"
#include "sdk/records/VeskPlayerRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace host {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::ThrowsMessage;

VeskValue doubleListValue(const QVariantList& numbers) {
    VeskValue value;
    value.setDoubleList(numbers);
    return value;
}

VeskDiracSlot slotRecord() {
    VeskDiracPiirBiquad biquad;
    biquad.setA1(-0.5);
    biquad.setA2(0.25);
    biquad.setB0(1);
    biquad.setB1(2);
    VeskDiracFiirParams fiir;
    fiir.setEnabled(true);
    fiir.setTaps({0.1, 0.0});
    fiir.setTapSize(2);
    fiir.setBiquads({QVariant(biquad)});
    fiir.setBiquadSize(1);
    VeskDiracLinearParams linear;
    linear.setEnabled(false);
    VeskDiracChannelParams channel;
    channel.setFiir(fiir);
    channel.setLinear(linear);
    const QVariantList variant{QVariant(channel), QVariant(channel)};

    VeskDiracBcCells cell;
    cell.setCellIdx(0);
    cell.setInputIdx(1);
    cell.setOutputIdx(2);
    cell.setDelay(12.5);
    cell.setGain(-3);
    VeskDiracBcParams section;
    section.setSectionIdx(2);
    section.setType(1);
    section.setNumCells(1);
    section.setCells({QVariant(cell)});

    VeskDiracSlot slot;
    slot.setSlotIdx(3);
    slot.setName("Sofa");
    slot.setCreationTime(1714564800007);
    slot.setSize(2);
    slot.setParams({variant, variant});
    slot.setBcParams({QVariant(QVariantList{QVariant(section)})});
    return slot;
}

VeskValue slotsValue() {
    VeskDiracSlotsList list;
    list.setActiveSlot(3);
    list.setSlots_({QVariant(slotRecord())});
    list.setFilteringEnabled(true);
    list.setDelayGainEnabled(false);
    return VeskValue::of(list);
}

VeskValue configValue() {
    VeskDiracSpeakerInfo speaker;
    speaker.setName("Left");
    speaker.setType(4);
    speaker.setGroupId(1);
    VeskDiracMicsInfo microphone;
    microphone.setName("Mic");
    VeskDiracConfig config;
    config.setSpeakers({QVariant(speaker)});
    config.setMics({QVariant(microphone)});
    config.setNumberOfSlots(8);
    config.setStimuliSampleRate(48000);
    config.setIpcKey(-1);
    config.setMicDeviceName("default");
    config.setMicRecordSampleRate(44100);
    return VeskValue::of(config);
}

TEST(ValueJson, NamesTheType) {
    EXPECT_EQ(valueType({}), "");
    EXPECT_EQ(valueType(VeskValue::ofBool(false)), "bool");
    EXPECT_EQ(valueType(VeskValue::ofI32(0)), "i32");
    EXPECT_EQ(valueType(VeskValue::ofDouble(0)), "double");
    EXPECT_EQ(valueType(VeskValue::ofString("")), "string");
    EXPECT_EQ(valueType(doubleListValue({1.0})), "doubleList");
    EXPECT_EQ(valueType(configValue()), "diracConfig");
    EXPECT_EQ(valueType(slotsValue()), "diracSlotsList");
    VeskPlayLogicData data;
    data.setState(VeskPlayLogicState::Playing);
    EXPECT_EQ(valueType(VeskValue(data.hash())), "record");
}

TEST(ValueJson, WritesScalarsAsJson) {
    EXPECT_EQ(valueToJson({}).dump(), "null");
    EXPECT_EQ(valueToJson(VeskValue::ofBool(true)).dump(), "true");
    EXPECT_EQ(valueToJson(VeskValue::ofI32(-5)).dump(), "-5");
    EXPECT_EQ(valueToJson(VeskValue::ofDouble(-3.5)).dump(), "-3.5");
    EXPECT_EQ(valueToJson(VeskValue::ofString("\"ä\"\n")).dump(), R"("\"ä\"\n")");
    EXPECT_EQ(valueToJson(doubleListValue({-60.0, 0.5})).dump(), "[-60.0,0.5]");
}

TEST(ValueJson, WritesTheKeysOfOtherRecords) {
    VeskMetaData metaData;
    metaData.setServiceID("radio");
    VeskMediaData mediaData;
    mediaData.setMetaData(metaData);
    EXPECT_EQ(valueToJson(VeskValue(mediaData.hash())).dump(),
              R"({"metaData":{"serviceID":"radio"}})");
}

TEST(ValueJson, NumbersThatJsonLacksAreTexts) {
    using Limits = std::numeric_limits<double>;
    EXPECT_EQ(valueToJson(VeskValue::ofDouble(Limits::infinity())), "Infinity");
    EXPECT_EQ(valueToJson(VeskValue::ofDouble(-Limits::infinity())), "-Infinity");
    EXPECT_EQ(valueToJson(VeskValue::ofDouble(Limits::quiet_NaN())), "NaN");
    EXPECT_EQ(valueFromText("double", "\"-Infinity\"").double_(), -Limits::infinity());
    EXPECT_TRUE(std::isnan(valueFromText("double", "\"NaN\"").double_()));
}

TEST(ValueJson, EveryValueComesBackTheSame) {
    for (const auto& value :
         {VeskValue::ofBool(true), VeskValue::ofI32(-1), VeskValue::ofDouble(0.1),
          VeskValue::ofDouble(5), VeskValue::ofString("a \"b\""), VeskValue::ofString("\"quoted\""),
          doubleListValue({-60.0, -1.0 / 3, 0.0}), configValue(), slotsValue()}) {
        const auto text = valueToJson(value).dump();
        EXPECT_EQ(valueFromText(valueType(value), text), value) << text;
    }
}

TEST(ValueJson, AStringMayBePlain) {
    EXPECT_EQ(valueFromText("string", "Living room").string(), "Living room");
    EXPECT_EQ(valueFromText("string", "12").string(), "12");
    EXPECT_EQ(valueFromText("string", "").string(), "");
    EXPECT_EQ(valueFromText("string", R"("a\nb")").string(), "a\nb");
}

TEST(ValueJson, IntegersKeepTheirRange) {
    EXPECT_EQ(valueFromText("i32", "-2147483648").i32_(), std::numeric_limits<int>::min());
    EXPECT_EQ(valueFromText("i32", "2147483647").i32_(), std::numeric_limits<int>::max());
}

TEST(ValueJson, LongListsAreShortenedToTheirLength) {
    const json document{{"short", {1, 2}},
                        {"long", std::vector<int>(1000)},
                        {"deep", {{{"x", std::vector<int>(9)}}}}};
    EXPECT_EQ(withoutLongLists(document).dump(),
              R"({"deep":[{"x":"9 elements"}],"long":"1000 elements","short":[1,2]})");
}

TEST(ValueJson, GuessesTheTypeOfAText) {
    EXPECT_EQ(guessedType("true"), "bool");
    EXPECT_EQ(guessedType("-7"), "i32");
    EXPECT_EQ(guessedType("7.0"), "double");
    EXPECT_EQ(guessedType("[1]"), "doubleList");
    EXPECT_EQ(guessedType("{}"), "record");
    EXPECT_EQ(guessedType("\"x\""), "string");
    EXPECT_EQ(guessedType("hello world"), "string");
}

TEST(ValueJson, ArgumentsAreAnObject) {
    const auto arguments = argumentsFromText(
        R"({"b": true, "i": 1, "l": 5000000000, "d": 0.5, "s": "t", "a": [1], "o": {"x": null}})");
    EXPECT_EQ(arguments["b"], QVariant(true));
    EXPECT_EQ(arguments["i"], QVariant(1));
    EXPECT_EQ(arguments["l"], QVariant(qlonglong{5000000000}));
    EXPECT_EQ(arguments["d"], QVariant(0.5));
    EXPECT_EQ(arguments["s"], QVariant("t"));
    EXPECT_EQ(arguments["a"].toList(), QVariantList{1});
    EXPECT_FALSE(arguments["o"].toHash()["x"].isValid());
    EXPECT_THAT([] { argumentsFromText("[1]"); },
                ThrowsMessage<ValueError>("expected an object, found [1]"));
}

struct WrongText {
    const char* type;
    std::string text;
    std::string message;
};

void PrintTo(const WrongText& wrong, std::ostream* out) {
    *out << plainName(wrong.type + (" " + wrong.text.substr(0, 20)) + " " + wrong.message);
}

class WrongValueText : public testing::TestWithParam<WrongText> {};

TEST_P(WrongValueText, IsRefusedWithItsPlace) {
    EXPECT_THAT([] { valueFromText(GetParam().type, GetParam().text); },
                ThrowsMessage<ValueError>(HasSubstr(GetParam().message)));
}

std::string changed(const VeskValue& value, const char* pointer, const json& content) {
    json document = valueToJson(value);
    document[json::json_pointer(pointer)] = content;
    return document.dump();
}

std::string without(const VeskValue& value, const char* pointer, const char* key) {
    json document = valueToJson(value);
    document[json::json_pointer(pointer)].erase(key);
    return document.dump();
}

INSTANTIATE_TEST_SUITE_P(
    Each, WrongValueText,
    testing::Values(
        WrongText{"colour", "1", "there is no type \"colour\""},
        WrongText{"bool", "1", "expected true or false, found 1"},
        WrongText{"bool", "on", "not JSON: \"on\""}, WrongText{"bool", "", "not JSON"},
        WrongText{"i32", "1.0", "expected an integer from -2147483648 to 2147483647, found 1.0"},
        WrongText{"i32", "2147483648", "expected an integer"},
        WrongText{"i32", "18446744073709551615", "expected an integer"},
        WrongText{"i32", "off", "not JSON: \"off\""},
        WrongText{"double", "\"loud\"", "expected a number, found \"loud\""},
        WrongText{"double", "1e999", "not JSON"}, WrongText{"string", "\"open", "not JSON"},
        WrongText{"doubleList", "5", "expected a list, found 5"},
        WrongText{"doubleList", "[]", "expected a list of at least one number, found []"},
        WrongText{"doubleList", "[1, \"x\"]", "/1: expected a number, found \"x\""},
        WrongText{"record", "[]", "expected an object, found []"},
        WrongText{"record", std::string(100, '[') + std::string(100, ']'), "nested too deeply"},
        WrongText{"diracConfig", "[]", "expected an object, found []"},
        WrongText{"diracConfig", "{}", "/speakers: this field is missing"},
        WrongText{"diracConfig", changed(configValue(), "/colour", 1),
                  "/colour: this field is not known"},
        WrongText{"diracConfig", changed(configValue(), "/speakers/0/type", "sub"),
                  "/speakers/0/type: expected an integer from 0 to 4294967295, found \"sub\""},
        WrongText{"diracConfig", changed(configValue(), "/numberOfSlots", -1),
                  "/numberOfSlots: expected an integer from 0 to 4294967295, found -1"},
        WrongText{"diracSlotsList", changed(slotsValue(), "/slots_/0/creationTime", "now"),
                  "/slots_/0/creationTime: expected an integer"},
        WrongText{"diracSlotsList", changed(slotsValue(), "/slots_/0/params/0/1/fiir/taps", 5),
                  "/slots_/0/params/0/1/fiir/taps: expected a list, found 5"},
        WrongText{"diracSlotsList", changed(slotsValue(), "/slots_/0/params/0/1/fiir/tapSize", 3),
                  "/slots_/0/params/0/1/fiir/tapSize: 3 of a list of 2"},
        WrongText{"diracSlotsList", changed(slotsValue(), "/slots_/0/params/0/1/fiir/tapSize", -1),
                  "/slots_/0/params/0/1/fiir/tapSize: -1 of a list of 2"},
        WrongText{"diracSlotsList",
                  changed(slotsValue(), "/slots_/0/bcParams/0/0/cells/0/numIirs", 1),
                  "/slots_/0/bcParams/0/0/cells/0/numIirs: 1 of a list of 0"},
        WrongText{"diracSlotsList", changed(slotsValue(), "/slots_/0/params", json::array()),
                  "/slots_/0: params needs a list for each of 2 variants"},
        WrongText{"diracSlotsList", changed(slotsValue(), "/slots_/0/size", 3),
                  "/slots_/0: params has a variant with fewer channels than size says"},
        WrongText{"diracSlotsList", without(slotsValue(), "/slots_/0", "name"),
                  "/slots_/0/name: this field is missing"}));

}  // namespace
}  // namespace host
