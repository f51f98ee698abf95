#include "calibrate/SpeakerMapping.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>

namespace calibrate {
namespace {

using Names = std::vector<std::string>;

/// "2 speakers (0 "Front left", 1 "Front right")".
std::string listOf(const Names& names) {
    std::string list;
    for (std::size_t i = 0; i < names.size(); ++i)
        list += (i == 0 ? "" : ", ") + std::to_string(i) + " \"" + printable(names[i]) + '"';
    return counted(names.size(), "speaker") + (list.empty() ? "" : " (" + list + ")");
}

SpeakerFilter channelOf(const FilterFile& file, std::size_t channel) {
    const bool single = file.channels.size() == 1;
    const std::string origin =
        single ? file.name() : file.name() + " channel " + std::to_string(channel);
    return {file.sampleRate, file.channels[channel], origin};
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::vector<std::size_t> indicesWhere(const Names& names, const auto& matches) {
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < names.size(); ++i)
        if (matches(names[i]))
            indices.push_back(i);
    return indices;
}

std::optional<std::size_t> asIndex(const std::string& text) {
    std::size_t index = 0;
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, index);
    return error == std::errc{} && stop == end ? std::optional(index) : std::nullopt;
}

/// The speakers that the text may mean: by name, else by name in other letters, else by index.
std::vector<std::size_t> candidates(const std::string& text, const Names& names) {
    auto found = indicesWhere(names, [&](const auto& name) { return name == text; });
    if (found.empty()) {
        found = indicesWhere(names,
                             [&](const auto& name) { return lowerCase(name) == lowerCase(text); });
    }
    if (const auto index = asIndex(text); found.empty() && index && *index < names.size())
        found.push_back(*index);
    return found;
}

std::size_t chosenChannel(const SpeakerAssignment& assignment) {
    const std::size_t count = assignment.file.channels.size();
    if (!assignment.channel && count != 1) {
        throw BadInput(assignment.file.name() + ": has " + std::to_string(count) +
                       " channels; name the one for speaker " + printable(assignment.speaker) +
                       ": FILE:0 to FILE:" + std::to_string(count - 1));
    }
    const std::size_t channel = assignment.channel.value_or(0);
    if (channel >= count) {
        throw BadInput(assignment.file.name() + ": has no channel " + std::to_string(channel) +
                       ", it has " + counted(count, "channel") + ", the first is 0");
    }
    return channel;
}

void add(SpeakerFilters& filters, SpeakerFilter filter, const std::string& speaker) {
    const auto same = std::find_if(filters.begin(), filters.end(), [&](const auto& other) {
        return other.sampleRate == filter.sampleRate;
    });
    if (same != filters.end()) {
        throw BadInput("speaker " + printable(speaker) + " was given two filters at " +
                       hertz(filter.sampleRate) + ": " + same->origin + " and " + filter.origin);
    }
    filters.push_back(std::move(filter));
}

}  // namespace

std::size_t findSpeaker(const std::string& text, const Names& names) {
    const auto found = candidates(text, names);
    if (found.empty()) {
        throw BadInput("--speaker " + printable(text) +
                       ": the device has no such speaker, it has " + listOf(names));
    }
    if (found.size() > 1) {
        throw BadInput("--speaker " + printable(text) + ": " + std::to_string(found.size()) +
                       " speakers have this name; give the index: the device has " + listOf(names));
    }
    return found.front();
}

SpeakerArgument parseSpeakerArgument(const std::string& text) {
    const auto equals = text.find('=');
    if (equals == 0 || equals == std::string::npos || equals + 1 == text.size()) {
        throw BadInput("--speaker " + printable(text) +
                       ": write SPEAKER=FILE or SPEAKER=FILE:CHANNEL");
    }
    SpeakerArgument argument{text.substr(0, equals), text.substr(equals + 1), std::nullopt};
    const std::string file = argument.path.string();
    const auto colon = file.rfind(':');
    std::error_code ignored;
    if (colon == std::string::npos || std::filesystem::exists(argument.path, ignored))
        return argument;
    if (const auto channel = asIndex(file.substr(colon + 1))) {
        argument.path = file.substr(0, colon);
        argument.channel = channel;
    }
    return argument;
}

std::vector<SpeakerFilters> mapInOrder(const std::vector<FilterFile>& files, const Names& names) {
    std::map<double, std::vector<SpeakerFilter>> channelsOfRate;
    for (const auto& file : files)
        for (std::size_t channel = 0; channel < file.channels.size(); ++channel)
            channelsOfRate[file.sampleRate].push_back(channelOf(file, channel));
    std::vector<SpeakerFilters> result(names.size());
    for (auto& [rate, channels] : channelsOfRate) {
        if (channels.size() != names.size()) {
            throw BadInput("the files at " + hertz(rate) + " hold " +
                           counted(channels.size(), "channel") + ", but the device has " +
                           listOf(names) +
                           ": give a channel for each, or name them with --speaker NAME=FILE");
        }
        for (std::size_t i = 0; i < names.size(); ++i)
            result[i].push_back(std::move(channels[i]));
    }
    return result;
}

std::vector<SpeakerFilters> mapAssigned(const std::vector<SpeakerAssignment>& assignments,
                                        const Names& names) {
    std::vector<SpeakerFilters> result(names.size());
    for (const auto& assignment : assignments) {
        const std::size_t speaker = findSpeaker(assignment.speaker, names);
        add(result[speaker], channelOf(assignment.file, chosenChannel(assignment)), names[speaker]);
    }
    return result;
}

}  // namespace calibrate
