#pragma once

namespace roomsim {

/// Locks on single bytes of an open file, for processes as for threads that opened it themselves.
/// The kernel drops them when the file is closed, so when its holder dies.
enum class LockByte { kPlayback = 0, kCapture = 1, kEntrance = 2 };

/// Waits for the byte and locks it; throws std::system_error.
void lockByte(int file, LockByte byte);

/// False when somebody else has locked the byte; throws std::system_error.
bool tryLockByte(int file, LockByte byte);

void unlockByte(int file, LockByte byte);

/// Whether somebody else has locked the byte.
bool isByteLocked(int file, LockByte byte);

}  // namespace roomsim
