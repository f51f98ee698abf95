#include "calibrate/CaptureFormat.h"

#include <cstdint>
#include <cstring>

namespace calibrate {
namespace {

template <class Number>
Number load(const std::byte* bytes) {
    Number number;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

float fraction(std::int32_t number) {
    return static_cast<float>(static_cast<double>(number) / 2147483648.0);
}

}  // namespace

float fromInteger32(const std::byte* bytes) {
    return fraction(load<std::int32_t>(bytes));
}

float fromFloat(const std::byte* bytes) {
    return load<float>(bytes);
}

float fromInteger24(const std::byte* bytes) {
    const auto low = std::to_integer<std::uint32_t>(bytes[0]) << 8U;
    const auto middle = std::to_integer<std::uint32_t>(bytes[1]) << 16U;
    const auto high = std::to_integer<std::uint32_t>(bytes[2]) << 24U;
    return fraction(static_cast<std::int32_t>(low | middle | high));
}

float fromInteger16(const std::byte* bytes) {
    return static_cast<float>(load<std::int16_t>(bytes)) / 32768.0F;
}

}  // namespace calibrate
