#pragma once

#include "calibrate/design/CorrectionCurve.h"
#include "calibrate/design/ParallelFilter.h"

#include <vector>

namespace calibrate::design {

/// Throws BadInput that says what is wrong with limits that contradict themselves, or with a
/// capacity in which no filter fits.
void checkLimits(const Limits& limits);
void checkCapacity(const FilterCapacity& capacity);

/// The minimum-phase filter of a curve within a device's capacity. It is stable, has no more boost
/// than the limits allow (where the fit overshoots, the whole filter gets less), and no more group
/// delay (where the curve would take it, its detail is given up, the widest last).
ParallelFilter realise(const CorrectionCurve& curve, const FilterCapacity& capacity,
                       const Limits& limits);

/// Largest gain of a filter at any frequency, dB.
double largestGain(const ParallelFilter& filter);

/// Largest group delay (s) of a filter between two frequencies (Hz).
double largestGroupDelay(const ParallelFilter& filter, double lowest, double highest);

}  // namespace calibrate::design
