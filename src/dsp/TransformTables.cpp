#include "dsp/TransformTables.h"

#include <cmath>
#include <numbers>
#include <span>

namespace dsp {
namespace {

Rotation rotation(double turns) {
    const double angle = 2 * std::numbers::pi * turns;
    return {static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))};
}

void fill(std::span<Twiddle> twiddles) {
    const double step = -0.25 / static_cast<double>(twiddles.size());
    for (std::size_t i = 0; i < twiddles.size(); ++i) {
        const double turns = step * static_cast<double>(i);
        twiddles[i] = {rotation(turns), rotation(2 * turns), rotation(3 * turns)};
    }
}

TransformTables makeTables() {
    TransformTables tables{};
    for (std::size_t i = 0; i < kTransformSize; ++i)
        tables.weights[i] = rotation(0.25 * static_cast<double>(i) / kTransformSize);
    fill(tables.of128);
    fill(tables.of32);
    fill(tables.of8);
    return tables;
}

}  // namespace

const TransformTables& transformTables() {
    static const TransformTables tables = makeTables();
    return tables;
}

}  // namespace dsp
