#include "calibrate/design/ParallelFilter.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace calibrate::design {
namespace {

using std::numbers::pi;

constexpr double kFittedSeconds = 0.7;
constexpr double kLowestOfRange = 0.9;  // first pole's frequency, of the lowest corrected one
constexpr double kResolution = 7.3;     // last pole's frequency times the taps' duration
constexpr double kLargestA2 = 1 - 0x1p-22;
constexpr double kRidge = 1e-10;      // keeps the normal equations solvable
constexpr double kFadedTaps = 0.125;  // part of the taps that fade out where no section goes on

/// Poles' frequencies at equal ratios; each as wide as the way to its neighbours.
std::vector<Section> fixedPoles(const FilterCapacity& capacity, double lowest) {
    const auto count = capacity.maxSections;
    const double first = kLowestOfRange * lowest;
    const double resolved =
        kResolution * capacity.sampleRate / static_cast<double>(capacity.maxTaps);
    const double last = std::clamp(resolved, 2 * first, 0.3 * capacity.sampleRate);
    const double steps = std::max(static_cast<double>(count) - 1, 1.0);
    const double ratio = std::pow(last / first, 1 / steps);
    std::vector<Section> sections(count);
    double frequency = first;
    for (auto& section : sections) {
        const double angle = 2 * pi * frequency / capacity.sampleRate;
        const double radius = std::exp(-angle * (ratio - 1 / ratio) / 4);
        section.a1 = static_cast<float>(-2 * radius * std::cos(angle));
        section.a2 = static_cast<float>(std::min(radius * radius, kLargestA2));
        // At high rates the poles of low frequencies are closer to 1 than floats are to each other.
        while (!decays(section.a1, section.a2))
            section.a1 = std::nextafter(section.a1, 0.0F);
        frequency *= ratio;
    }
    return sections;
}

/// What 1 / (1 + a1 z⁻¹ + a2 z⁻²) answers to an impulse.
Eigen::VectorXd decay(const Section& section, Eigen::Index length) {
    Eigen::VectorXd samples(length);
    double last = 0;
    double beforeLast = 0;
    for (Eigen::Index i = 0; i < length; ++i) {
        const double sample = (i == 0 ? 1.0 : 0.0) - static_cast<double>(section.a1) * last -
                              static_cast<double>(section.a2) * beforeLast;
        samples[i] = sample;
        beforeLast = last;
        last = sample;
    }
    return samples;
}

/// The two columns that a section adds to the least squares' matrix: what its poles answer to an
/// impulse, and the same a sample later.
struct Products {
    double now{0};
    double later{0};
};

/// Products of a section's columns, from sample `first` on, with `wanted`. Run backwards the poles'
/// recursion sums them up without the columns themselves.
Products products(const Section& section, std::span<const double> wanted, std::size_t first) {
    double next = 0;
    double afterNext = 0;
    for (std::size_t i = wanted.size(); i-- > 0;) {
        const double sample = (i < first ? 0.0 : wanted[i]) -
                              static_cast<double>(section.a1) * next -
                              static_cast<double>(section.a2) * afterNext;
        afterNext = next;
        next = sample;
    }
    return {next, afterNext};
}

/// What sections answer to an impulse, sample by sample. They take turns, so that the processor
/// need not wait for one recursion after the other.
class SectionBank {
public:
    explicit SectionBank(const std::vector<Section>& sections) {
        for (const auto& section : sections) {
            a1_.push_back(static_cast<double>(section.a1));
            a2_.push_back(static_cast<double>(section.a2));
            next_.push_back(static_cast<double>(section.b0));
            following_.push_back(static_cast<double>(section.b1));
        }
    }

    /// The sum of all sections' next samples.
    double next() {
        double sum = 0;
        for (std::size_t i = 0; i < next_.size(); ++i) {
            const double sample = next_[i];
            sum += sample;
            next_[i] = following_[i] - a1_[i] * sample;
            following_[i] = -a2_[i] * sample;
        }
        return sum;
    }

private:
    std::vector<double> a1_;
    std::vector<double> a2_;
    std::vector<double> next_;       ///< each section's next sample
    std::vector<double> following_;  ///< what is known of the one after it
};

void fadeOut(std::vector<float>& taps) {
    const double faded = kFadedTaps * static_cast<double>(taps.size());
    for (std::size_t i = 0; i < taps.size(); ++i) {
        const double fromEnd = static_cast<double>(taps.size() - i);
        if (fromEnd < faded)
            taps[i] *= static_cast<float>(0.5 - 0.5 * std::cos(pi * fromEnd / faded));
    }
}

}  // namespace

bool decays(float a1, float a2) {
    const auto first = static_cast<double>(a1);
    const auto second = static_cast<double>(a2);
    return std::abs(second) < 1 && std::abs(first) < 1 + second;
}

bool ParallelFilter::isStable() const {
    const auto isFine = [](const Section& section) {
        return decays(section.a1, section.a2) && std::isfinite(section.b0) &&
               std::isfinite(section.b1);
    };
    return std::ranges::all_of(sections, isFine) &&
           std::ranges::all_of(taps, [](float tap) { return std::isfinite(tap); });
}

std::complex<double> ParallelFilter::response(double frequency) const {
    const auto delay = std::polar(1.0, -2 * pi * frequency / sampleRate);
    std::complex<double> sum = 0;
    for (auto tap = taps.rbegin(); tap != taps.rend(); ++tap)
        sum = sum * delay + static_cast<double>(*tap);
    for (const auto& section : sections) {
        const std::complex<double> zeros =
            static_cast<double>(section.b0) + static_cast<double>(section.b1) * delay;
        sum += zeros / (1.0 + delay * (static_cast<double>(section.a1) +
                                       static_cast<double>(section.a2) * delay));
    }
    return sum;
}

std::vector<double> ParallelFilter::impulseResponse(std::size_t length) const {
    std::vector<double> samples(length);
    std::copy_n(taps.begin(), std::min(length, taps.size()), samples.begin());
    SectionBank bank(sections);
    for (double& sample : samples)
        sample += bank.next();
    return samples;
}

void ParallelFilter::scale(double factor) {
    const auto wanted = impulseResponse(taps.size());
    for (auto& section : sections) {
        section.b0 = static_cast<float>(static_cast<double>(section.b0) * factor);
        section.b1 = static_cast<float>(static_cast<double>(section.b1) * factor);
    }
    std::ranges::fill(taps, 0.0F);
    const auto covered = impulseResponse(taps.size());
    for (std::size_t i = 0; i < taps.size(); ++i)
        taps[i] = static_cast<float>(factor * wanted[i] - covered[i]);
}

/// The normal equations of the numerators, each column scaled to one.
class ParallelFit::Equations {
public:
    Equations(const std::vector<Section>& poles, std::size_t first, std::size_t length)
        : poles_(poles), first_(first) {
        const auto rows = static_cast<Eigen::Index>(length - first);
        Eigen::MatrixXd basis(rows, 2 * static_cast<Eigen::Index>(poles.size()));
        for (std::size_t i = 0; i < poles.size(); ++i) {
            const auto samples = decay(poles[i], static_cast<Eigen::Index>(length));
            const auto column = 2 * static_cast<Eigen::Index>(i);
            basis.col(column) = samples.tail(rows);
            basis.col(column + 1) = samples.segment(static_cast<Eigen::Index>(first) - 1, rows);
        }
        scale_ = basis.colwise().norm().cwiseMax(1e-30).cwiseInverse().transpose();
        Eigen::MatrixXd gram(basis.cols(), basis.cols());
        gram.setZero().selfadjointView<Eigen::Lower>().rankUpdate(basis.transpose());
        gram = scale_.asDiagonal() * gram * scale_.asDiagonal();
        gram.diagonal().array() += kRidge;
        solver_.compute(gram);
    }

    std::vector<Section> solve(std::span<const double> wanted) const {
        Eigen::VectorXd right(scale_.size());
        for (std::size_t i = 0; i < poles_.size(); ++i) {
            const auto [now, later] = products(poles_[i], wanted, first_);
            right[2 * static_cast<Eigen::Index>(i)] = now;
            right[2 * static_cast<Eigen::Index>(i) + 1] = later;
        }
        const Eigen::VectorXd numerators =
            solver_.solve(right.cwiseProduct(scale_)).cwiseProduct(scale_);
        std::vector<Section> sections(poles_);
        for (std::size_t i = 0; i < sections.size(); ++i) {
            sections[i].b0 = static_cast<float>(numerators[2 * static_cast<Eigen::Index>(i)]);
            sections[i].b1 = static_cast<float>(numerators[2 * static_cast<Eigen::Index>(i) + 1]);
        }
        return sections;
    }

private:
    std::vector<Section> poles_;
    std::size_t first_;
    Eigen::VectorXd scale_;
    Eigen::LDLT<Eigen::MatrixXd> solver_;  ///< of the lower triangle
};

ParallelFit::ParallelFit(const FilterCapacity& capacity, double lowest, std::size_t length)
    : capacity_(capacity),
      length_(std::min(length, static_cast<std::size_t>(kFittedSeconds * capacity.sampleRate))) {
    if (capacity.maxSections == 0 || capacity.maxTaps + 4 * capacity.maxSections >= length_)
        return;
    poles_ = fixedPoles(capacity, lowest);
    equations_ = std::make_unique<Equations>(poles_, capacity.maxTaps, length_);
}

ParallelFit::ParallelFit(ParallelFit&&) noexcept = default;
ParallelFit::~ParallelFit() = default;

ParallelFilter ParallelFit::fit(std::span<const double> impulseResponse) const {
    const auto wanted = impulseResponse.first(std::min(length_, impulseResponse.size()));
    const std::size_t count = std::min(capacity_.maxTaps, wanted.size());
    ParallelFilter filter{capacity_.sampleRate, {}, {}};
    if (equations_)
        filter.sections = equations_->solve(wanted);
    const auto covered = filter.impulseResponse(count);
    for (std::size_t i = 0; i < count; ++i)
        filter.taps.push_back(static_cast<float>(wanted[i] - covered[i]));
    if (filter.sections.empty())
        fadeOut(filter.taps);
    return filter;
}

ParallelFilter fitParallelFilter(std::span<const double> impulseResponse,
                                 const FilterCapacity& capacity, double lowest) {
    return ParallelFit(capacity, lowest, impulseResponse.size()).fit(impulseResponse);
}

}  // namespace calibrate::design
