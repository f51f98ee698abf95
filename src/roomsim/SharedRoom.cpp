#include "roomsim/SharedRoom.h"

#include "roomsim/FileLock.h"
#include "roomsim/RoomError.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <system_error>

namespace roomsim {
namespace {

LockByte byteOf(Role role) {
    return role == Role::kPlayback ? LockByte::kPlayback : LockByte::kCapture;
}

std::uint64_t fnv1a(const std::string& text) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ULL;
    return hash;
}

/// Where POSIX shared memory lives on Linux; the pipes lie beside it.
std::filesystem::path sharedPath(const std::filesystem::path& file) {
    std::ostringstream name;
    name << "/dev/shm/vesk-room-" << getuid() << '-' << std::hex << std::setfill('0')
         << std::setw(16) << fnv1a(std::filesystem::weakly_canonical(file).string());
    return name.str();
}

std::filesystem::path wakePath(const std::filesystem::path& room, Role role) {
    return room.string() + (role == Role::kPlayback ? "-playback" : "-capture");
}

[[noreturn]] void fail(const std::filesystem::path& path) {
    const int error = errno;
    throw RoomError(error, path.string() + ": " + std::strerror(error));
}

FileDescriptor openFile(const std::filesystem::path& path, int flags) {
    FileDescriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (file.get() < 0)
        fail(path);
    return file;
}

FileDescriptor openWake(const std::filesystem::path& path) {
    if (mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST)
        fail(path);
    return openFile(path, O_RDWR | O_NONBLOCK);
}

bool isRemoved(int file) {
    struct stat status {};
    if (fstat(file, &status) != 0)
        throw std::system_error(errno, std::system_category(), "fstat");
    return status.st_nlink == 0;
}

/// Whether anybody but the holder of this open file is in the room.
bool isInhabited(int file) {
    return isByteLocked(file, LockByte::kPlayback) || isByteLocked(file, LockByte::kCapture);
}

/// Holds the lock under which a room is entered and left.
class Entrance {
public:
    explicit Entrance(int file) : file_(file) { lockByte(file, LockByte::kEntrance); }
    ~Entrance() { unlockByte(file_, LockByte::kEntrance); }
    Entrance(const Entrance&) = delete;
    Entrance& operator=(const Entrance&) = delete;

private:
    int file_;
};

}  // namespace

SharedRoom::SharedRoom(const RoomDescription& description, Role role, double history)
    : role_(role), path_(sharedPath(description.file)) {
    while (!enter(description, history)) {
    }
}

SharedRoom::~SharedRoom() {
    access()->clear(role_);
    wakePeer();
    const Entrance entrance(file_.get());
    if (!isInhabited(file_.get()))
        removeFiles();
}

bool SharedRoom::peerIsAlive() const {
    return isByteLocked(file_.get(), byteOf(peerOf(role_)));
}

/// A full pipe means that enough calls are under way.
void SharedRoom::wakePeer() const {
    const char call = 0;
    (void)!write(peerWake_.get(), &call, 1);
}

std::optional<RoomState> SharedRoom::inspect(const std::filesystem::path& file) {
    const std::filesystem::path path = sharedPath(file);
    const FileDescriptor memory(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (memory.get() < 0 && errno == ENOENT)
        return std::nullopt;
    if (memory.get() < 0)
        fail(path);
    const Entrance entrance(memory.get());
    if (!isInhabited(memory.get()))
        return std::nullopt;
    return *RoomMemory::attach(memory.get()).access();
}

/// False when the room vanished on the way in: its last stream was just leaving.
bool SharedRoom::enter(const RoomDescription& description, double history) {
    file_ = openFile(path_, O_RDWR | O_CREAT);
    const Entrance entrance(file_.get());
    if (isRemoved(file_.get()))
        return false;
    if (!tryLockByte(file_.get(), byteOf(role_)))
        throw RoomError(EBUSY, description.file.string() + ": another stream " +
                                   (role_ == Role::kPlayback ? "plays" : "records") +
                                   " in this room");
    try {
        wake_ = openWake(wakePath(path_, role_));
        peerWake_ = openWake(wakePath(path_, peerOf(role_)));
        memory_ = openMemory(description, history);
    } catch (...) {
        if (!isInhabited(file_.get()))
            removeFiles();
        throw;
    }
    return true;
}

/// Joins the other stream; without one, makes the room anew, whatever a killed process left.
RoomMemory SharedRoom::openMemory(const RoomDescription& description, double history) {
    if (!peerIsAlive())
        return RoomMemory::create(file_.get(), description, history);
    RoomMemory memory = RoomMemory::attach(file_.get());
    if (memory.speakers() != description.speakers.size())
        throw RoomError(EINVAL, description.file.string() + ": speakers: the room is in use with " +
                                    std::to_string(memory.speakers()) + " of them");
    memory.access()->clear(role_);
    return memory;
}

void SharedRoom::removeFiles() const {
    unlink(path_.c_str());
    unlink(wakePath(path_, Role::kPlayback).c_str());
    unlink(wakePath(path_, Role::kCapture).c_str());
}

}  // namespace roomsim
