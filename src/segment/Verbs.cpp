#include "segment/Verbs.h"

#include "segment/ChannelResponse.h"
#include "segment/ImageJson.h"
#include "segment/ImageText.h"
#include "segment/SegmentReader.h"
#include "segment/SegmentWatch.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <span>
#include <string>
#include <thread>

namespace segment {

namespace {

constexpr double kLowestFrequency = 10;  // Hz
constexpr int kJsonIndent = 2;

using Json = nlohmann::ordered_json;

std::string formatted(const char* format, auto... values) {
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

void show(const Command& command, std::ostream& out) {
    const auto image = SegmentReader(command.key).read();
    if (command.json)
        out << imageJson(*image).dump(kJsonIndent) << '\n';
    else
        printImage(out, *image);
}

std::vector<ResponsePoint> responseOf(const Command& command, const DiracChannelFilter& channel) {
    const double rate = groupSampleRate(command.group);
    std::vector<ResponsePoint> points;
    for (const double frequency : logSpacedFrequencies(kLowestFrequency, rate / 2, command.points))
        points.push_back(channelResponse(channel, rate, frequency));
    return points;
}

void printResponse(std::ostream& out, const std::vector<ResponsePoint>& points) {
    out << "   frequency/Hz   magnitude/dB      phase/deg       delay/ms\n";
    for (const auto& point : points)
        out << formatted("%15.3f%15.4f%15.3f%15.4f\n", point.frequency, point.magnitude,
                         point.phase, point.groupDelay);
}

void printResponseJson(std::ostream& out, const Command& command, const DiracConfiguration& image,
                       const std::vector<ResponsePoint>& points) {
    const Json document{{"channel", command.channel},
                        {"group", command.group},
                        {"sampleRate", groupSampleRate(command.group)},
                        {"bypass", image.bypass != 0},
                        {"bassControlPresent", image.bassControlPresent != 0},
                        {"points", responseJson(points)}};
    out << document.dump(kJsonIndent) << '\n';
}

void printResponseNotes(std::ostream& out, const DiracConfiguration& image) {
    if (image.bypass != 0)
        out << "# bypass is on: the DSP passes the signal unchanged\n";
    if (image.bassControlPresent != 0)
        out << "# bass control is on and not part of this response\n";
}

void response(const Command& command, std::ostream& out) {
    const auto image = SegmentReader(command.key).read();
    const auto points = responseOf(command, image->groups[command.group][command.channel]);
    if (command.json)
        return printResponseJson(out, command, *image, points);
    printResponseNotes(out, *image);
    printResponse(out, points);
}

void taps(const Command& command, std::ostream& out) {
    const auto image = SegmentReader(command.key).read();
    const auto& channel = image->groups[command.group][command.channel];
    const auto count = std::min<std::size_t>(channel.tapCount, channel.taps.size());
    const auto used = std::span(channel.taps).first(count);
    if (command.raw) {
        out.write(reinterpret_cast<const char*>(used.data()),
                  static_cast<std::streamsize>(used.size_bytes()));
        return;
    }
    for (const double tap : used)
        out << formatted("%.9g\n", tap);
}

Json changeJson(const SegmentChange& change) {
    if (change.image) {
        Json line{{"event", "image"}};
        line.update(imageSummaryJson(*change.image));
        return line;
    }
    const bool absent = change.kind == SegmentChange::Kind::Absent;
    return {{"event", absent ? "absent" : "unreadable"}, {"error", change.error}};
}

void printChange(std::ostream& out, const Command& command, const SegmentChange& change) {
    if (command.json)
        out << changeJson(change).dump();
    else
        out << (change.image ? imageSummary(*change.image) : change.error);
    out << std::endl;
}

void watch(const Command& command, std::ostream& out) {
    SegmentWatch watched(command.key);
    std::size_t printed = 0;
    while (out) {
        if (const auto change = watched.poll()) {
            printChange(out, command, *change);
            if (++printed == command.changes)
                return;
        }
        std::this_thread::sleep_for(command.interval);
    }
}

}  // namespace

void run(const Command& command, std::ostream& out) {
    switch (command.verb) {
        case Command::Verb::Show:
            return show(command, out);
        case Command::Verb::Response:
            return response(command, out);
        case Command::Verb::Taps:
            return taps(command, out);
        case Command::Verb::Watch:
            return watch(command, out);
    }
}

}  // namespace segment
