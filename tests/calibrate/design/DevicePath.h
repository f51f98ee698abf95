#pragma once

#include "calibrate/design/SystemDesign.h"

#include <cstddef>
#include <vector>

/// What a microphone at the first position hears of an impulse in a signal for one main speaker,
/// which a device plays with this design: cell by cell through its bass sections, or through the
/// speaker's delay and gain where there are none, and through the filters. Computed sample by
/// sample with the coefficients that a device gets, the delays as whole samples; as long as
/// `length`. The design's first capacity is of the responses' rate.
std::vector<double> throughDevice(const calibrate::design::SystemDesign& design,
                                  const std::vector<calibrate::design::MeasuredSpeaker>& speakers,
                                  std::size_t speaker, std::size_t length);
