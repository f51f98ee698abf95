#pragma once

#include "calibrate/design/CorrectionCurve.h"
#include "calibrate/design/ParallelFilter.h"

#include <optional>
#include <vector>

namespace calibrate::design {

/// Throws BadInput that says what is wrong with limits that contradict themselves, or with a
/// capacity in which no filter fits.
void checkLimits(const Limits& limits);
void checkCapacity(const FilterCapacity& capacity);

/// Makes minimum-phase filters of curves whose ranges begin at one frequency, within one capacity.
class FilterMaker {
public:
    /// Throws BadInput when no filter fits into the capacity.
    FilterMaker(const FilterCapacity& capacity, double lowest);

    /// The filter of a curve that begins at `lowest`. It is stable, has no more boost than the
    /// limits (or the curve, if that has more) allow: where the fit overshoots, the curve gets less
    /// of it. And it has no more group delay: where the curve would take it, its detail is given
    /// up, the widest last. Throws BadInput when the limits contradict themselves.
    ParallelFilter make(const CorrectionCurve& curve, const Limits& limits) const;

    const FilterCapacity& capacity() const { return capacity_; }

private:
    std::optional<ParallelFilter> fitWithinBoost(CorrectionCurve curve, double maxBoost) const;
    ParallelFilter withoutCorrection() const;

    FilterCapacity capacity_;
    ParallelFit fit_;
};

/// The same for one curve.
ParallelFilter realise(const CorrectionCurve& curve, const FilterCapacity& capacity,
                       const Limits& limits);

/// dB from a filter's gain for pink noise between two frequencies (Hz) to its largest gain at any.
double boost(const ParallelFilter& filter, double lowest, double highest);

/// Largest gain of a filter at any frequency, dB.
double largestGain(const ParallelFilter& filter);

/// Largest group delay (s) of a filter between two frequencies (Hz).
double largestGroupDelay(const ParallelFilter& filter, double lowest, double highest);

}  // namespace calibrate::design
