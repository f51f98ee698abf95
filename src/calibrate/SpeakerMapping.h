#pragma once

#include "calibrate/FilterFile.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace calibrate {

/// A filter for one speaker, at the sample rate at which it was made.
struct SpeakerFilter {
    double sampleRate{0};      ///< Hz
    std::vector<double> taps;  ///< earliest first, not empty
    std::string origin;        ///< for messages: "front.wav", "front.wav channel 1"
};

/// The filters of one speaker, each at another sample rate. Empty: the speaker stays as it is.
using SpeakerFilters = std::vector<SpeakerFilter>;

/// "SPEAKER=FILE" or "SPEAKER=FILE:CHANNEL" as the user wrote it.
struct SpeakerArgument {
    std::string speaker;  ///< name or index
    std::filesystem::path path;
    std::optional<std::size_t> channel;
};

/// Throws BadInput when the text is neither. A file whose name ends like a channel is found as it
/// is when it exists.
SpeakerArgument parseSpeakerArgument(const std::string& text);

/// A file, or a channel of one, for a speaker that the user named.
struct SpeakerAssignment {
    std::string speaker;  ///< name or index
    FilterFile file;
    std::optional<std::size_t> channel;  ///< may be left out for a file with one channel
};

/// The speaker that the text means: by its name, else by its name in other letters, else by its
/// index. Throws BadInput, with the option --speaker, for a text that means none or several.
std::size_t findSpeaker(const std::string& text, const std::vector<std::string>& speakerNames);

/// Lays the files' channels onto the speakers, for each sample rate by itself: the channels of the
/// files of a rate, in the order given, belong to the speakers in the device's order.
/// Throws BadInput when they are more or fewer than the speakers.
std::vector<SpeakerFilters> mapInOrder(const std::vector<FilterFile>& files,
                                       const std::vector<std::string>& speakerNames);

/// Gives each file to the speaker that its assignment names; other speakers get none.
/// Throws BadInput for a speaker that is unknown, ambiguous or given two filters of one rate, and
/// for a channel that is missing or that the file does not have.
std::vector<SpeakerFilters> mapAssigned(const std::vector<SpeakerAssignment>& assignments,
                                        const std::vector<std::string>& speakerNames);

}  // namespace calibrate
