#include "platform/dldsp/KaiserLowPass.h"

#include <cmath>
#include <numbers>
#include <numeric>

namespace {

using std::numbers::pi;

/// The modified Bessel function of the first kind and order 0, by its power series.
double besselI0(double x) {
    double sum = 1;
    double term = 1;
    for (int k = 1; term > sum * 1e-17; ++k) {
        term *= (x / (2 * k)) * (x / (2 * k));
        sum += term;
    }
    return sum;
}

double kaiserBeta(double attenuation) {
    return 0.1102 * (attenuation - 8.7);
}

/// `position` is -1 at the first tap, 0 in the middle, 1 at the last.
double kaiserWindow(double beta, double position) {
    return besselI0(beta * std::sqrt(1 - position * position)) / besselI0(beta);
}

/// The impulse response of the ideal low-pass, `offset` samples from its middle.
double idealLowPass(double cutOff, int offset) {
    if (offset == 0)
        return 2 * cutOff;
    return std::sin(2 * pi * cutOff * offset) / (pi * offset);
}

}  // namespace

double kaiserTransitionWidth(int taps, double attenuation) {
    return (attenuation - 7.95) / (2.285 * (taps - 1)) / (2 * pi);
}

std::vector<double> kaiserLowPass(int taps, double cutOff, double attenuation) {
    const int middle = taps / 2;
    const double beta = kaiserBeta(attenuation);
    std::vector<double> response;
    for (int offset = -middle; offset <= middle; ++offset)
        response.push_back(idealLowPass(cutOff, offset) *
                           kaiserWindow(beta, static_cast<double>(offset) / middle));
    const double sum = std::accumulate(response.begin(), response.end(), 0.0);
    for (double& tap : response)
        tap /= sum;
    return response;
}
