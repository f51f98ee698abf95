#pragma once

/// Puts the process into IPC and network namespaces of its own, with loopback up, so that the fixed
/// System V key and TCP port of the module meet nothing of the machine's. Call it first thing in
/// main(), before there are threads. False when the kernel does not allow it: tests then rely on
/// ctest's resource lock.
bool isolateFromMachine();

/// The link of an isolated process, and its children, to itself: while it lives nothing passes over
/// TCP, and nobody is told. Throws std::runtime_error when the process is not isolated.
class PulledCable {
public:
    PulledCable();
    /// Plugs it in again.
    ~PulledCable();
    PulledCable(const PulledCable&) = delete;
    PulledCable& operator=(const PulledCable&) = delete;
};

/// Whether isolateFromMachine() has succeeded.
bool isIsolated();
