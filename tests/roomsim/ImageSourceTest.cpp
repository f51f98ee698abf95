#include "roomsim/ImageSource.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

namespace roomsim {
namespace {

constexpr double kSpeed = 343.0;
constexpr unsigned int kRate = 48000;
constexpr std::array<double, 6> kDead{1.0, 1.0, 1.0, 1.0, 1.0, 1.0};

std::complex<double> spectrumAt(const std::vector<float>& response, double frequency) {
    std::complex<double> sum = 0.0;
    for (std::size_t n = 0; n < response.size(); ++n) {
        const double turn = -2.0 * std::numbers::pi * frequency * static_cast<double>(n) / kRate;
        sum += static_cast<double>(response[n]) * std::polar(1.0, turn);
    }
    return sum;
}

/// A path of sound: its length in m, and the gain of the walls on it.
struct Path {
    double length;
    double walls;
};

/// The closed form: each path is a delay and the law of distance.
std::complex<double> expectedAt(const std::vector<Path>& paths, double frequency) {
    std::complex<double> sum = 0.0;
    for (const Path& path : paths)
        sum += std::polar(path.walls / path.length,
                          -2.0 * std::numbers::pi * frequency * path.length / kSpeed);
    return sum;
}

void expectPaths(const std::vector<float>& response, const std::vector<Path>& paths) {
    for (double frequency = 20.0; frequency <= 20'000.0; frequency *= 1.3)
        EXPECT_LT(std::abs(spectrumAt(response, frequency) - expectedAt(paths, frequency)), 2e-5)
            << frequency << " Hz";
}

double distance(const Position& a, const Position& b) {
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

const Position kSize{5.0, 4.0, 2.5};
const Position kSource{1.3, 0.9, 1.1};
const Position kMicrophone{2.6, 2.9, 1.2};

TEST(ImageSource, WithoutReflectionsIsOneDelayAndOneOverDistance) {
    const ImageSource room({kSize, kDead, 0.05}, kSpeed, kRate);
    expectPaths(room.response(kSource, kMicrophone), {{distance(kSource, kMicrophone), 1.0}});
}

TEST(ImageSource, ADirectPathOfWholeSamplesIsASingleSample) {
    const double metres = 280.0 * kSpeed / kRate;
    const ImageSource room({{6.0, 4.0, 2.5}, kDead, 0.05}, kSpeed, kRate);
    const auto response = room.response({1.0, 1.0, 1.0}, {1.0 + metres, 1.0, 1.0});
    for (std::size_t n = 0; n < response.size(); ++n)
        EXPECT_NEAR(response[n], n == 280 ? 1.0 / metres : 0.0, 1e-6) << n;
}

TEST(ImageSource, EachWallMirrorsTheSourceOnce) {
    for (std::size_t wall = 0; wall < 6; ++wall) {
        Shoebox shoebox{kSize, kDead, 0.06};
        shoebox.absorption[wall] = 0.36;
        const std::size_t axis = wall / 2;
        Position image = kSource;
        image[axis] = (wall % 2 == 0 ? 0.0 : 2.0 * kSize[axis]) - kSource[axis];
        const ImageSource room(shoebox, kSpeed, kRate);
        SCOPED_TRACE(wall);
        expectPaths(room.response(kSource, kMicrophone),
                    {{distance(kSource, kMicrophone), 1.0}, {distance(image, kMicrophone), 0.8}});
    }
}

TEST(ImageSource, TwoFacingWallsThrowTheSoundToAndFro) {
    // Gains 0.8 at x = 0 and 0.6 at x = size; all paths within 0.1 s, unfolded by hand.
    Shoebox shoebox{kSize, kDead, 0.1};
    shoebox.absorption[0] = 1.0 - 0.64;
    shoebox.absorption[1] = 1.0 - 0.36;
    const double x = kSource[0];
    const double length = kSize[0];
    const std::vector<std::pair<double, double>> images{
        {x, 1.0},
        {-x, 0.8},
        {2 * length - x, 0.6},
        {2 * length + x, 0.48},
        {-2 * length + x, 0.48},
        {-2 * length - x, 0.8 * 0.48},
        {4 * length - x, 0.6 * 0.48},
        {4 * length + x, 0.48 * 0.48},
        {-4 * length + x, 0.48 * 0.48},
        {-4 * length - x, 0.8 * 0.48 * 0.48},
        {6 * length - x, 0.6 * 0.48 * 0.48},
        {6 * length + x, 0.48 * 0.48 * 0.48},
        {-6 * length + x, 0.48 * 0.48 * 0.48},
        {-6 * length - x, 0.8 * 0.48 * 0.48 * 0.48},
    };
    std::vector<Path> paths;
    for (const auto& [place, gain] : images) {
        const double metres = distance({place, kSource[1], kSource[2]}, kMicrophone);
        if (metres < 0.1 * kSpeed - 0.3)
            paths.push_back({metres, gain});
    }
    const ImageSource room(shoebox, kSpeed, kRate);
    expectPaths(room.response(kSource, kMicrophone), paths);
}

TEST(ImageSource, ACornerOfThreeWallsGivesEightPaths) {
    Shoebox shoebox{{20.0, 20.0, 20.0}, kDead, 0.05};
    for (const std::size_t wall : {0U, 2U, 4U})
        shoebox.absorption[wall] = 0.75;  // gain 0.5
    std::vector<Path> paths;
    for (int mirrors = 0; mirrors < 8; ++mirrors) {
        Position image = kSource;
        double gain = 1.0;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            if (((mirrors >> axis) & 1) != 0) {
                image[axis] = -image[axis];
                gain *= 0.5;
            }
        }
        paths.push_back({distance(image, kMicrophone), gain});
    }
    const ImageSource room(shoebox, kSpeed, kRate);
    expectPaths(room.response(kSource, kMicrophone), paths);
}

TEST(ImageSource, SourceAndMicrophoneCanChangePlaces) {
    const ImageSource room({kSize, {0.2, 0.3, 0.1, 0.4, 0.5, 0.15}, 0.2}, kSpeed, kRate);
    const auto there = room.response(kSource, kMicrophone);
    const auto back = room.response(kMicrophone, kSource);
    ASSERT_EQ(there.size(), back.size());
    for (std::size_t n = 0; n < there.size(); ++n)
        ASSERT_NEAR(there[n], back[n], 1e-5);
}

TEST(ImageSource, ResponsesEndWhenTheyShould) {
    const ImageSource room({kSize, {0, 0, 0, 0, 0, 0}, 0.0123}, kSpeed, kRate);
    EXPECT_EQ(room.response(kSource, kMicrophone).size(), 591U);  // ceil(0.0123 s * 48 kHz)
}

}  // namespace
}  // namespace roomsim
