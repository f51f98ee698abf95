#include "segment/ImageJson.h"

#include "segment/ImageText.h"

#include <algorithm>
#include <span>

namespace segment {

namespace {

using Json = nlohmann::ordered_json;

template <typename Elements>
auto used(const Elements& elements, std::uint32_t count) {
    return std::span(elements).first(std::min<std::size_t>(count, elements.size()));
}

template <typename Elements, typename ToJson>
Json listJson(const Elements& elements, ToJson toJson) {
    Json list = Json::array();
    for (const auto& element : elements)
        list.push_back(toJson(element));
    return list;
}

Json speakerJson(const DiracSpeaker& speaker) {
    return {{"type", speaker.type}, {"groupId", speaker.groupId}};
}

Json parallelBiquadJson(const DiracParallelBiquad& biquad) {
    return {{"a1", biquad.a1}, {"a2", biquad.a2}, {"b0", biquad.b0}, {"b1", biquad.b1}};
}

Json biquadJson(const DiracBiquad& biquad) {
    return {{"a1", biquad.a1},
            {"a2", biquad.a2},
            {"b0", biquad.b0},
            {"b1", biquad.b1},
            {"b2", biquad.b2}};
}

Json channelJson(const DiracChannelFilter& channel) {
    return {{"filterEnabled", channel.filterEnabled != 0},
            {"tapCount", channel.tapCount},
            {"taps", listJson(used(channel.taps, channel.tapCount), [](float tap) { return tap; })},
            {"biquadCount", channel.biquadCount},
            {"biquads", listJson(used(channel.biquads, channel.biquadCount), parallelBiquadJson)},
            {"linearEnabled", channel.linearEnabled != 0},
            {"delay", channel.delay},
            {"gain", channel.gain}};
}

Json groupsJson(const DiracConfiguration& image) {
    Json groups = Json::array();
    for (std::size_t group = 0; group < image.groups.size(); ++group)
        groups.push_back({{"sampleRate", groupSampleRate(group)},
                          {"channels", listJson(image.groups[group], channelJson)}});
    return groups;
}

Json subSamplerJson(const DiracConfiguration& image) {
    Json rates = Json::array();
    for (std::size_t rate = 0; rate < image.sampleRates.size(); ++rate)
        rates.push_back(
            {{"sampleRate", image.sampleRates[rate]}, {"bytes", image.subSamplerSizes[rate]}});
    return rates;
}

Json cellJson(const DiracBassControlCell& cell) {
    return {{"cellIdx", cell.cellIdx},
            {"inputIdx", cell.inputIdx},
            {"outputIdx", cell.outputIdx},
            {"biquadCount", cell.biquadCount},
            {"biquads", listJson(used(cell.biquads, cell.biquadCount), biquadJson)},
            {"delay", cell.delay},
            {"gain", cell.gain}};
}

Json sectionJson(const DiracBassControlSection& section) {
    return {{"sectionIdx", section.sectionIdx},
            {"type", section.type},
            {"cellCount", section.cellCount},
            {"cells", listJson(used(section.cells, section.cellCount), cellJson)}};
}

Json blockJson(const DiracBassControlBlock& block) {
    return listJson(block, sectionJson);
}

Json pointJson(const ResponsePoint& point) {
    return {{"frequency", point.frequency},
            {"magnitude", point.magnitude},
            {"phase", point.phase},
            {"groupDelay", point.groupDelay}};
}

}  // namespace

Json imageJson(const DiracConfiguration& image) {
    return {{"timeStamp", image.timeStamp},
            {"digest", imageDigestText(image)},
            {"bypass", image.bypass != 0},
            {"speakerCount", image.speakerCount},
            {"speakers", listJson(used(image.speakers, image.speakerCount), speakerJson)},
            {"groups", groupsJson(image)},
            {"subSampler", subSamplerJson(image)},
            {"bassControlPresent", image.bassControlPresent != 0},
            {"bassControl", listJson(image.bassControl, blockJson)}};
}

Json imageSummaryJson(const DiracConfiguration& image) {
    return {{"timeStamp", image.timeStamp},
            {"digest", imageDigestText(image)},
            {"bypass", image.bypass != 0},
            {"speakerCount", image.speakerCount},
            {"bassControlPresent", image.bassControlPresent != 0}};
}

Json responseJson(const std::vector<ResponsePoint>& points) {
    return listJson(points, pointJson);
}

}  // namespace segment
