#include "roomsim/ImpulseResponses.h"

#include "roomsim/ButterworthFilter.h"
#include "roomsim/RoomError.h"
#include "roomsim/WavFile.h"

#include <soxr.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

namespace roomsim {
namespace {

using Responses = std::vector<std::vector<float>>;

struct Measured {
    unsigned int rate;
    Responses responses;
};

[[noreturn]] void failOnCount(const std::filesystem::path& file, std::size_t channels,
                              std::size_t wanted) {
    throw RoomError(EINVAL, file.string() + ": has " + std::to_string(channels) +
                                " channels, not " + std::to_string(wanted));
}

std::vector<WavFile> readFiles(const RoomDescription& room, const Microphone& microphone) {
    const std::size_t speakers = room.speakers.size();
    const std::size_t files = microphone.responses.size();
    if (files != 1 && files != speakers)
        throw RoomError(EINVAL, room.file.string() + ": microphones: \"" + microphone.name +
                                    "\" has " + std::to_string(files) + " responses for " +
                                    std::to_string(speakers) + " speakers");
    std::vector<WavFile> contents;
    for (const auto& file : microphone.responses) {
        contents.push_back(readWavFile(file));
        const std::size_t channels = contents.back().channels.size();
        if (channels != speakers / files)
            failOnCount(file, channels, speakers / files);
    }
    return contents;
}

Responses readResponses(const RoomDescription& room, const Microphone& microphone,
                        unsigned int rate) {
    Responses responses;
    for (const WavFile& content : readFiles(room, microphone)) {
        for (const auto& channel : content.channels)
            responses.push_back(resampled(channel, content.rate, rate));
    }
    return responses;
}

Responses computeResponses(const RoomDescription& room, const Microphone& microphone,
                           unsigned int rate) {
    const ImageSource images(*room.shoebox, room.speedOfSound, rate);
    Responses responses;
    for (const Speaker& speaker : room.speakers)
        responses.push_back(images.response(*speaker.position, *microphone.position));
    return responses;
}

void limitRange(const Speaker& speaker, unsigned int rate, std::vector<float>& response) {
    if (speaker.highPass)
        ButterworthFilter::highPass(*speaker.highPass, rate).process(response);
    if (speaker.lowPass)
        ButterworthFilter::lowPass(*speaker.lowPass, rate).process(response);
}

double longest(const RoomDescription& room, const Microphone& microphone) {
    if (microphone.responses.empty())
        return room.shoebox->length;
    double seconds = 0.0;
    for (const WavFile& content : readFiles(room, microphone)) {
        const auto frames = static_cast<double>(content.channels.front().size());
        seconds = std::max(seconds, frames / content.rate);
    }
    return seconds;
}

}  // namespace

std::vector<std::vector<float>> impulseResponses(const RoomDescription& room, unsigned int rate) {
    const Microphone& microphone = room.microphones[room.microphone];
    Responses responses = microphone.responses.empty() ? computeResponses(room, microphone, rate)
                                                       : readResponses(room, microphone, rate);
    for (std::size_t i = 0; i < responses.size(); ++i) {
        limitRange(room.speakers[i], rate, responses[i]);
        const auto gain = static_cast<float>(room.speakers[i].gain * microphone.gain);
        for (float& sample : responses[i])
            sample *= gain;
    }
    return responses;
}

std::vector<float> resampled(const std::vector<float>& response, unsigned int from,
                             unsigned int to) {
    if (from == to)
        return response;
    const double ratio = static_cast<double>(to) / from;
    std::vector<float> output(
        static_cast<std::size_t>(std::ceil(static_cast<double>(response.size()) * ratio)));
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    std::size_t written = 0;
    const soxr_error_t error =
        soxr_oneshot(from, to, 1, response.data(), response.size(), nullptr, output.data(),
                     output.size(), &written, nullptr, &quality, nullptr);
    if (error != nullptr)
        throw RoomError(EINVAL, std::string("resampling: ") + error);
    output.resize(written);
    // The sum over the samples approximates the integral, whose step has changed.
    for (float& sample : output)
        sample = static_cast<float>(static_cast<double>(sample) / ratio);
    return output;
}

double longestResponse(const RoomDescription& room) {
    double seconds = 0.0;
    for (const Microphone& microphone : room.microphones)
        seconds = std::max(seconds, longest(room, microphone));
    return seconds;
}

}  // namespace roomsim
