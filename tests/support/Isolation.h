#pragma once

/// Puts the process into IPC and network namespaces of its own, with loopback up, so that the fixed
/// System V key and TCP port of the module meet nothing of the machine's. Call it first thing in
/// main(), before there are threads. False when the kernel does not allow it: tests then rely on
/// ctest's resource lock.
bool isolateFromMachine();
