#pragma once

#include <cstddef>
#include <string>

namespace calibrate::report {

inline constexpr const char* kPageFile = "report.html";
inline constexpr const char* kJsonFile = "report.json";
inline constexpr const char* kFiltersFolder = "filters";
inline constexpr const char* kFiltersFile = "filters/design.json";
inline constexpr const char* kTargetFile = "responses/target.txt";

/// Where a speaker's files lie in the report's folder. Names are plain ASCII, and no two speakers
/// share one, whatever the speakers are called.
class FileNames {
public:
    static constexpr const char* kAfter = "after";
    static constexpr const char* kPredicted = "predicted";

    FileNames(std::size_t index, const std::string& speaker);

    /// "position-1" for the first one, which counts 0 here.
    static std::string position(std::size_t index);

    /// With what all of them begin: "1-front-left".
    const std::string& stem() const { return stem_; }

    std::string recording(const std::string& which) const;
    std::string impulseResponse(const std::string& which) const;
    std::string response(const std::string& which) const;
    std::string filter(double sampleRate) const;
    std::string filterResponse(double sampleRate) const;

private:
    std::string filterStem(double sampleRate) const;

    std::string stem_;
};

}  // namespace calibrate::report
