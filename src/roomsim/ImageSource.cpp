#include "roomsim/ImageSource.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace roomsim {
namespace {

constexpr std::size_t kKernelHalfWidth = 32;  // samples
constexpr double kKernelBeta = 10.0;
constexpr double kFaintest = 1e-9;  // gain of an image; all fainter ones together are inaudible

/// An image of the source, seen along one axis.
struct AxisImage {
    double distance;  ///< m from the microphone, along the axis, not negative
    double gain;      ///< of the reflections at the axis's two walls
};

AxisImage axisImage(double size, double source, double microphone, double low, double high, int m,
                    bool mirrored) {
    const double place = 2.0 * m * size + (mirrored ? -source : source);
    const int atLow = std::abs(mirrored ? m - 1 : m);
    return {std::abs(place - microphone), std::pow(low, atLow) * std::pow(high, std::abs(m))};
}

/// All images along one axis that are not farther than `reach`, nearest first.
std::vector<AxisImage> axisImages(const Shoebox& room, std::size_t axis, double source,
                                  double microphone, double reach) {
    const double low = std::sqrt(1.0 - room.absorption[2 * axis]);
    const double high = std::sqrt(1.0 - room.absorption[2 * axis + 1]);
    const int order = static_cast<int>(reach / (2.0 * room.size[axis])) + 1;
    std::vector<AxisImage> images;
    for (int m = -order; m <= order; ++m) {
        for (const bool mirrored : {false, true})
            images.push_back(
                axisImage(room.size[axis], source, microphone, low, high, m, mirrored));
    }
    std::erase_if(images, [reach](const AxisImage& image) {
        return image.distance > reach || image.gain == 0.0;
    });
    std::ranges::sort(images, {}, &AxisImage::distance);
    return images;
}

/// Collects band-limited impulses; has room for kernels that reach over either end.
class Response {
public:
    Response(std::size_t length, const SincKernel& kernel)
        : kernel_(kernel), samples_(length + kernel.width()) {}

    void add(double delay, double gain) {
        const double whole = std::floor(delay);
        kernel_.add(delay - whole, static_cast<float>(gain),
                    samples_.data() + static_cast<std::size_t>(whole));
    }

    [[nodiscard]] std::vector<float> samples() const {
        const auto lead = static_cast<std::ptrdiff_t>(kernel_.halfWidth()) - 1;
        const auto tail = static_cast<std::ptrdiff_t>(kernel_.halfWidth()) + 1;
        return {samples_.begin() + lead, samples_.end() - tail};
    }

private:
    const SincKernel& kernel_;
    std::vector<float> samples_;
};

}  // namespace

ImageSource::ImageSource(const Shoebox& room, double speedOfSound, unsigned int rate)
    : room_(room),
      length_(static_cast<std::size_t>(std::ceil(room.length * rate))),
      samplesPerMetre_(rate / speedOfSound),
      kernel_(kKernelHalfWidth, 1.0, kKernelBeta) {
}

std::vector<float> ImageSource::response(const Position& source, const Position& microphone) const {
    const double reach = static_cast<double>(length_) / samplesPerMetre_;
    std::array<std::vector<AxisImage>, 3> images;
    for (std::size_t axis = 0; axis < 3; ++axis)
        images[axis] = axisImages(room_, axis, source[axis], microphone[axis], reach);

    Response response(length_, kernel_);
    for (const AxisImage& x : images[0]) {
        for (const AxisImage& y : images[1]) {
            const double inPlane = x.distance * x.distance + y.distance * y.distance;
            const double gain = x.gain * y.gain;
            for (const AxisImage& z : images[2]) {
                const double squared = inPlane + z.distance * z.distance;
                if (squared >= reach * reach)
                    break;
                const double distance = std::sqrt(squared);
                if (gain * z.gain > kFaintest * distance)
                    response.add(distance * samplesPerMetre_, gain * z.gain / distance);
            }
        }
    }
    return response.samples();
}

}  // namespace roomsim
