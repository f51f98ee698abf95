#pragma once

#include "calibrate/design/SystemDesign.h"

#include <cstddef>
#include <vector>

/// Simulated rooms, the same ones in every run.
struct SimulatedRoom {
    /// Left and right, and with a subwoofer that too; two positions of the microphone.
    std::vector<calibrate::design::MeasuredSpeaker> speakers;
    double lowestOfMains;  ///< Hz, where the main speakers' range begins
};

/// Room `index` of a set without end: a shoebox of a living room's size with its own walls,
/// speakers and seats. Every second one has small speakers and a subwoofer.
/// Made once in a process.
const SimulatedRoom& simulatedRoom(std::size_t index);

/// What is designed for it, measured at the first position, at 48 kHz. Made once, too.
const calibrate::design::SystemDesign& designOfSimulatedRoom(std::size_t index);

inline constexpr std::size_t kSimulatedRooms = 20;
