#include "dsp/ImageFile.h"

#include "dsp/RegularFile.h"
#include "dsp/ReplacedFile.h"
#include "dsp/ToolError.h"

#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>

namespace dsp {
namespace {

std::string lastError() {
    return std::generic_category().message(errno);
}

void checkIsImage(const std::filesystem::path& file, const std::string& bytes) {
    if (bytes.size() != sizeof(DiracSegment))
        throw ToolError(file, "is not a saved image: it has " + std::to_string(bytes.size()) +
                                  " bytes, not " + std::to_string(sizeof(DiracSegment)));
}

}  // namespace

std::unique_ptr<DiracConfiguration> readImageFile(const std::filesystem::path& file) {
    refuseIrregularFile(file);
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw ToolError(file, lastError());
    std::string bytes(sizeof(DiracSegment) + 1, '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (stream.bad())
        throw ToolError(file, lastError());
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    checkIsImage(file, bytes);
    auto segment = std::make_unique<DiracSegment>();
    bytes.copy(reinterpret_cast<char*>(segment.get()), sizeof *segment);
    if (segment->magic != DiracSegment::kMagic)
        throw ToolError(file, "is not a saved image: it begins with other bytes than the segment");
    return std::make_unique<DiracConfiguration>(segment->configuration);
}

void writeImageFile(const std::filesystem::path& file, const DiracConfiguration& image) {
    ReplacedFile replaced(file);
    const auto segment = std::make_unique<DiracSegment>();
    segment->configuration = image;
    std::ofstream stream(replaced.partial(), std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char*>(segment.get()), sizeof *segment);
    stream.close();
    if (!stream)
        throw ToolError(file, "cannot be written: " + lastError());
    replaced.commit();
}

}  // namespace dsp
