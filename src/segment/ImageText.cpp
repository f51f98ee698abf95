#include "segment/ImageText.h"

#include "segment/ChannelResponse.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <ostream>
#include <span>
#include <sstream>

namespace segment {

namespace {

constexpr int kLabelWidth = 14;

std::ostream& label(std::ostream& out, const char* text) {
    return out << std::left << std::setw(kLabelWidth) << text;
}

const char* onOff(std::uint32_t flag) {
    return flag != 0 ? "on" : "off";
}

std::string number(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.6g", value);
    return text.data();
}

/// A count, marked when the record cannot hold that many.
std::string countText(std::uint32_t count, std::size_t capacity) {
    const std::string text = std::to_string(count);
    return count <= capacity ? text : text + "!";
}

bool isDefault(const DiracChannelFilter& channel) {
    static const DiracChannelFilter unit{};
    return std::ranges::equal(std::as_bytes(std::span(&channel, 1)),
                              std::as_bytes(std::span(&unit, 1)));
}

std::size_t shownChannels(const DiracConfiguration& image, const DiracChannelGroup& group) {
    std::size_t count = std::min<std::size_t>(image.speakerCount, group.size());
    for (std::size_t channel = count; channel < group.size(); ++channel)
        if (!isDefault(group[channel]))
            count = channel + 1;
    return count;
}

template <typename... Columns>
void row(std::ostream& out, const Columns&... columns) {
    out << std::right << "  ";
    ((out << std::setw(10) << columns), ...);
    out << '\n';
}

void printChannel(std::ostream& out, std::size_t index, const DiracChannelFilter& channel) {
    const bool linear = channel.linearEnabled != 0;
    row(out, index, onOff(channel.filterEnabled), countText(channel.tapCount, channel.taps.size()),
        countText(channel.biquadCount, channel.biquads.size()), onOff(channel.linearEnabled),
        linear ? number(channel.delay) : "-", linear ? number(channel.gain) : "-");
}

void printGroup(std::ostream& out, const DiracConfiguration& image, std::size_t index) {
    const auto& group = image.groups[index];
    out << "\ngroup " << index << ", " << groupSampleRate(index) << " Hz\n";
    row(out, "channel", "filter", "taps", "biquads", "linear", "delay/ms", "gain/dB");
    for (std::size_t channel = 0; channel < shownChannels(image, group); ++channel)
        printChannel(out, channel, group[channel]);
}

void printSpeakers(std::ostream& out, const DiracConfiguration& image) {
    label(out, "speakers") << countText(image.speakerCount, image.speakers.size()) << '\n';
    const auto count = std::min<std::size_t>(image.speakerCount, image.speakers.size());
    for (std::size_t index = 0; index < count; ++index)
        label(out, "") << index << ": type " << image.speakers[index].type << ", group "
                       << image.speakers[index].groupId << '\n';
}

void printSubSampler(std::ostream& out, const DiracConfiguration& image) {
    out << '\n';
    label(out, "sub-sampler");
    for (std::size_t rate = 0; rate < image.sampleRates.size(); ++rate)
        out << (rate == 0 ? "" : ", ") << image.sampleRates[rate]
            << " Hz: " << countText(image.subSamplerSizes[rate], DiracLimits::subSamplerBytes)
            << " bytes";
    out << '\n';
}

void printCell(std::ostream& out, const DiracBassControlSection& section,
               const DiracBassControlCell& cell) {
    out << "    " << cell.inputIdx << " -> " << cell.outputIdx << ": ";
    if (section.type == 0)
        out << countText(cell.biquadCount, cell.biquads.size()) << " biquads\n";
    else
        out << "delay " << cell.delay << " samples, gain " << number(cell.gain) << " dB\n";
}

void printSection(std::ostream& out, const DiracBassControlSection& section) {
    out << "  section " << section.sectionIdx << ", " << (section.type == 0 ? "IIR" : "delay/gain")
        << ", " << countText(section.cellCount, section.cells.size()) << " cells\n";
    const auto count = std::min<std::size_t>(section.cellCount, section.cells.size());
    for (const auto& cell : std::span(section.cells).first(count))
        printCell(out, section, cell);
}

void printBassControl(std::ostream& out, const DiracConfiguration& image) {
    label(out, "bass control") << onOff(image.bassControlPresent) << '\n';
    if (image.bassControlPresent == 0)
        return;
    for (std::size_t block = 0; block < image.bassControl.size(); ++block) {
        out << "block " << block << ", " << groupSampleRate(block) << " Hz\n";
        for (const auto& section : image.bassControl[block])
            printSection(out, section);
    }
}

std::size_t filteredChannels(const DiracChannelGroup& group) {
    return static_cast<std::size_t>(std::count_if(
        group.begin(), group.end(), [](const auto& channel) { return channel.filterEnabled; }));
}

}  // namespace

std::uint64_t imageDigest(const DiracConfiguration& image) {
    constexpr std::uint64_t kOffsetBasis = 0xcbf29ce484222325;
    constexpr std::uint64_t kPrime = 0x100000001b3;
    const auto bytes = std::as_bytes(std::span(&image, 1)).subspan(sizeof(image.timeStamp));
    std::uint64_t digest = kOffsetBasis;
    for (const std::byte byte : bytes)
        digest = (digest ^ std::to_integer<std::uint64_t>(byte)) * kPrime;
    return digest;
}

std::string imageDigestText(const DiracConfiguration& image) {
    std::ostringstream text;
    text << std::hex << std::setfill('0') << std::setw(16) << imageDigest(image);
    return text.str();
}

std::string timeStampText(std::int64_t milliseconds) {
    const auto remainder = ((milliseconds % 1000) + 1000) % 1000;
    const std::time_t seconds = (milliseconds - remainder) / 1000;
    std::tm parts{};
    if (gmtime_r(&seconds, &parts) == nullptr)
        return std::to_string(milliseconds) + " ms";
    std::ostringstream text;
    text << std::put_time(&parts, "%Y-%m-%d %H:%M:%S.") << std::setfill('0') << std::setw(3)
         << remainder << " UTC";
    return text.str();
}

std::string imageSummary(const DiracConfiguration& image) {
    std::ostringstream text;
    text << timeStampText(image.timeStamp) << "  bypass " << onOff(image.bypass) << "  speakers "
         << image.speakerCount << "  filtered channels " << filteredChannels(image.groups[0])
         << "  bass control " << onOff(image.bassControlPresent) << "  digest "
         << imageDigestText(image);
    return text.str();
}

void printImage(std::ostream& out, const DiracConfiguration& image) {
    label(out, "time stamp") << timeStampText(image.timeStamp) << '\n';
    label(out, "bypass") << onOff(image.bypass) << '\n';
    label(out, "digest") << imageDigestText(image) << '\n';
    printSpeakers(out, image);
    for (std::size_t group = 0; group < image.groups.size(); ++group)
        printGroup(out, image, group);
    printSubSampler(out, image);
    printBassControl(out, image);
}

}  // namespace segment
