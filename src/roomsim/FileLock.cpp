#include "roomsim/FileLock.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>

namespace roomsim {
namespace {

struct flock rangeOf(LockByte byte, short type) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = static_cast<off_t>(byte);
    range.l_len = 1;
    return range;
}

[[noreturn]] void fail() {
    throw std::system_error(errno, std::system_category(), "file lock");
}

}  // namespace

void lockByte(int file, LockByte byte) {
    struct flock range = rangeOf(byte, F_WRLCK);
    while (fcntl(file, F_OFD_SETLKW, &range) != 0) {
        if (errno != EINTR)
            fail();
    }
}

bool tryLockByte(int file, LockByte byte) {
    struct flock range = rangeOf(byte, F_WRLCK);
    if (fcntl(file, F_OFD_SETLK, &range) == 0)
        return true;
    if (errno != EAGAIN && errno != EACCES)
        fail();
    return false;
}

void unlockByte(int file, LockByte byte) {
    struct flock range = rangeOf(byte, F_UNLCK);
    fcntl(file, F_OFD_SETLK, &range);
}

bool isByteLocked(int file, LockByte byte) {
    struct flock range = rangeOf(byte, F_WRLCK);
    return fcntl(file, F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}

}  // namespace roomsim
