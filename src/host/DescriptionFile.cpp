#include "host/DescriptionFile.h"

#include "sdk/dldsp/DiracConfiguration.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <regex>

namespace host {

namespace {

using nlohmann::ordered_json;
using platform::DeviceDescription;
using platform::ResourceBehaviour;
using platform::ResourceDescription;
using platform::Speaker;

constexpr int kLowestSampleRate = 8000;     // Hz
constexpr int kHighestSampleRate = 192000;  // Hz
// A slot that was calibrated with one speaker cannot be read back: the next start would end there.
constexpr std::size_t kFewestSpeakers = 2;
constexpr unsigned kMostSlots = 256;
constexpr unsigned kMostChannels = 64;
constexpr std::size_t kMostMicrophones = 64;
constexpr std::size_t kMostVolumeSteps = 10000;
constexpr const char* kMicrophone = "microphone";
constexpr std::array kLogLevels{"OFF", "FATAL", "ERROR", "WARN", "INFO", "DEBUG", "TRACE"};

QString qtText(const std::string& text) {
    return QString::fromStdString(text);
}

unsigned unsignedInteger(const JsonReader& value, unsigned minimum, unsigned maximum) {
    return static_cast<unsigned>(value.integer(minimum, maximum));
}

int sampleRate(const JsonReader& value) {
    return static_cast<int>(value.integer(kLowestSampleRate, kHighestSampleRate));
}

std::string matchingText(const JsonReader& value, const char* pattern, const char* expected) {
    const std::string text = value.text();
    if (!std::regex_match(text, std::regex(pattern, std::regex::icase)))
        value.refuse(expected);
    return text;
}

std::string uuid(const JsonReader& value) {
    return matchingText(value, "[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}",
                        "a UUID such as \"6ba7b810-9dad-11d1-80b4-00c04fd430c8\"");
}

std::string macAddress(const JsonReader& value) {
    return matchingText(value, "[0-9a-f]{2}(:[0-9a-f]{2}){5}",
                        "a MAC address such as \"aa:bb:cc:dd:ee:ff\"");
}

std::string networkAddress(const JsonReader& value) {
    const std::string text = value.text();
    if (!isNetworkAddress(text))
        value.refuse("an IP address");
    return text;
}

Speaker speaker(const JsonReader& value) {
    constexpr unsigned kAny = std::numeric_limits<std::int32_t>::max();
    JsonObjectReader object(value);
    const Speaker result{qtText(object.required("name").nonEmptyText()),
                         unsignedInteger(object.required("type"), 0, kAny),
                         unsignedInteger(object.required("group"), 0, kAny)};
    object.finish();
    return result;
}

QList<Speaker> speakers(const JsonReader& value) {
    QList<Speaker> result;
    for (const auto& element : value.list(kFewestSpeakers, DiracLimits::speakers))
        result.append(speaker(element));
    return result;
}

QStringList microphones(const JsonReader& value) {
    QStringList result;
    for (const auto& element : value.list(0, kMostMicrophones))
        result.append(qtText(element.nonEmptyText()));
    return result;
}

QList<double> volumeMap(const JsonReader& value) {
    QList<double> result;
    for (const auto& element : value.list(1, kMostVolumeSteps)) {
        const double decibels = element.number();
        if (decibels > 0 || (!result.isEmpty() && decibels <= result.back()))
            element.refuse("a volume in dB, above the one before it and at most 0");
        result.append(decibels);
    }
    return result;
}

std::string logLevel(const JsonReader& value) {
    const std::string level = value.text();
    if (!isLogLevel(level))
        value.refuse("OFF, FATAL, ERROR, WARN, INFO, DEBUG or TRACE");
    return level;
}

ResourceBehaviour behaviour(const JsonReader& value) {
    const std::string text = value.text();
    if (text == "granted")
        return ResourceBehaviour::Granted;
    if (text == "refused")
        return ResourceBehaviour::Refused;
    if (text == "silent")
        return ResourceBehaviour::Silent;
    value.refuse("\"granted\", \"refused\" or \"silent\"");
}

const char* behaviourText(ResourceBehaviour behaviour) {
    switch (behaviour) {
        case ResourceBehaviour::Granted:
            return "granted";
        case ResourceBehaviour::Refused:
            return "refused";
        case ResourceBehaviour::Silent:
            return "silent";
    }
    return "";
}

/// Each behaviour has keys of its own.
ResourceDescription resource(const char* name, const JsonReader& value) {
    JsonObjectReader object(value);
    ResourceDescription result{
        QString::fromLatin1(name), behaviour(object.required("behaviour")), {}, {}, {}};
    if (result.behaviour == ResourceBehaviour::Granted) {
        if (const auto holder = object.optional("holder"))
            result.holder = qtText(holder->nonEmptyText());
    }
    if (result.behaviour == ResourceBehaviour::Refused) {
        result.errorName = qtText(object.required("errorName").nonEmptyText());
        result.errorText = qtText(object.required("errorText").text());
    }
    object.finish();
    return result;
}

QList<ResourceDescription> resources(const JsonReader& value) {
    QList<ResourceDescription> result;
    JsonObjectReader object(value);
    if (const auto described = object.optional(kMicrophone))
        result.append(resource(kMicrophone, *described));
    object.finish();
    return result;
}

LogSettings logSettings(const JsonReader& value) {
    LogSettings settings;
    JsonObjectReader object(value);
    if (const auto level = object.optional("level"))
        settings.level = logLevel(*level);
    if (const auto file = object.optional("file"))
        settings.file = file->text();
    object.finish();
    return settings;
}

void readIdentity(JsonObjectReader& object, DeviceDescription* device) {
    device->manufacturer = qtText(object.required("manufacturer").nonEmptyText());
    device->deviceName = qtText(object.required("deviceName").nonEmptyText());
    device->productShortName = qtText(object.required("productShortName").nonEmptyText());
    device->uuidNamespace = qtText(uuid(object.required("uuidNamespace")));
    device->ethernetMac = qtText(macAddress(object.required("ethernetMac")));
}

void readCalibration(JsonObjectReader& object, DeviceDescription* device) {
    device->speakers = speakers(object.required("speakers"));
    device->microphones = microphones(object.required("microphones"));
    device->numberOfSlots = unsignedInteger(object.required("numberOfSlots"), 1, kMostSlots);
    device->stimuliSampleRate = sampleRate(object.required("stimuliSampleRate"));
    if (const auto channels = object.optional("stimuliChannels"))
        device->stimuliChannels = unsignedInteger(
            *channels, static_cast<unsigned>(device->speakers.size()), kMostChannels);
    device->ipcKey = static_cast<int>(object.required("ipcKey").integer(
        std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
    device->micDeviceName = qtText(object.required("micDeviceName").text());
    device->micRecordSampleRate = sampleRate(object.required("micRecordSampleRate"));
    if (const auto disabled = object.optional("disableShmUpdate"))
        device->disableShmUpdate = disabled->boolean();
    device->volumeMap = volumeMap(object.required("volumeMap"));
    if (const auto name = object.optional("playbackDeviceName"))
        device->playbackDeviceName = qtText(name->text());
    if (const auto described = object.optional("resources"))
        device->resources = resources(*described);
}

void readProcess(JsonObjectReader& object, HostDescription* description) {
    auto& device = description->device;
    device.stateDirectory = QStringLiteral("state");
    if (const auto directory = object.optional("stateDirectory"))
        device.stateDirectory = qtText(directory->nonEmptyText());
    if (const auto address = object.optional("listenAddress"))
        device.listenAddress = qtText(networkAddress(*address));
    if (const auto log = object.optional("log"))
        description->log = logSettings(*log);
}

ordered_json speakersJson(const QList<Speaker>& speakers) {
    ordered_json list = ordered_json::array();
    for (const auto& speaker : speakers)
        list.push_back({{"name", speaker.name.toStdString()},
                        {"type", speaker.type},
                        {"group", speaker.groupId}});
    return list;
}

ordered_json microphonesJson(const QStringList& microphones) {
    ordered_json list = ordered_json::array();
    for (const auto& name : microphones)
        list.push_back(name.toStdString());
    return list;
}

ordered_json resourcesJson(const QList<ResourceDescription>& resources) {
    ordered_json all = ordered_json::object();
    for (const auto& resource : resources) {
        ordered_json one{{"behaviour", behaviourText(resource.behaviour)}};
        if (!resource.holder.isEmpty())
            one["holder"] = resource.holder.toStdString();
        if (resource.behaviour == ResourceBehaviour::Refused) {
            one["errorName"] = resource.errorName.toStdString();
            one["errorText"] = resource.errorText.toStdString();
        }
        all[resource.name.toStdString()] = one;
    }
    return all;
}

}  // namespace

HostDescription readDescription(const std::string& file) {
    const nlohmann::json document = parseJsonFile(file);
    JsonObjectReader object(JsonReader(document, file, ""));
    HostDescription description;
    readIdentity(object, &description.device);
    readCalibration(object, &description.device);
    readProcess(object, &description);
    object.finish();
    return description;
}

std::string descriptionText(const HostDescription& description) {
    const auto& device = description.device;
    ordered_json document{{"manufacturer", device.manufacturer.toStdString()},
                          {"deviceName", device.deviceName.toStdString()},
                          {"productShortName", device.productShortName.toStdString()},
                          {"uuidNamespace", device.uuidNamespace.toStdString()},
                          {"ethernetMac", device.ethernetMac.toStdString()},
                          {"speakers", speakersJson(device.speakers)},
                          {"microphones", microphonesJson(device.microphones)},
                          {"numberOfSlots", device.numberOfSlots},
                          {"stimuliSampleRate", device.stimuliSampleRate}};
    if (device.stimuliChannels)
        document["stimuliChannels"] = *device.stimuliChannels;
    document["ipcKey"] = device.ipcKey;
    document["micDeviceName"] = device.micDeviceName.toStdString();
    document["micRecordSampleRate"] = device.micRecordSampleRate;
    document["disableShmUpdate"] = device.disableShmUpdate;
    document["volumeMap"] = std::vector<double>(device.volumeMap.begin(), device.volumeMap.end());
    document["playbackDeviceName"] = device.playbackDeviceName.toStdString();
    document["resources"] = resourcesJson(device.resources);
    document["stateDirectory"] = device.stateDirectory.toStdString();
    document["listenAddress"] = device.listenAddress.toStdString();
    document["log"] = {{"level", description.log.level}, {"file", description.log.file}};
    return document.dump(4);
}

bool isLogLevel(const std::string& level) {
    return std::find(kLogLevels.begin(), kLogLevels.end(), level) != kLogLevels.end();
}

bool isNetworkAddress(const std::string& text) {
    std::array<char, sizeof(in6_addr)> address{};
    return inet_pton(AF_INET, text.c_str(), address.data()) == 1 ||
           inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

}  // namespace host
