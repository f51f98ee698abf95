#include "roomsim/RoomMemory.h"

#include "roomsim/MonotonicClock.h"
#include "roomsim/RoomError.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <system_error>

namespace roomsim {

/// The rings of the speakers follow it.
struct RoomMemory::Layout {
    static constexpr std::uint64_t kVersion = 1;

    std::uint64_t version;
    pthread_mutex_t mutex;
    RoomState room;
    SpeakerRingState ring;

    float* samples() { return reinterpret_cast<float*>(this + 1); }
};

namespace {

// What the ring holds besides the history: what is written and not yet played, and what is played
// and not yet recorded.
constexpr std::size_t kBufferedFrames = 2 * kLongestBuffer + 16384;

[[noreturn]] void fail(int error, const std::string& what) {
    throw RoomError(error, "shared memory: " + what + ": " + std::strerror(error));
}

void makeRobust(pthread_mutex_t& mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    const int error = pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (error != 0)
        fail(error, "mutex");
}

}  // namespace

/// Takes the mutex over from a process that died with it: each of the fields is sound by itself,
/// and the stream that died is cleared by whoever finds it dead.
RoomMemory::Access::Access(RoomMemory& memory) : memory_(memory) {
    const int error = pthread_mutex_lock(&memory_.layout_->mutex);
    if (error == EOWNERDEAD)
        pthread_mutex_consistent(&memory_.layout_->mutex);
    else if (error != 0)
        throw std::system_error(error, std::system_category(), "room mutex");
}

RoomMemory::Access::~Access() {
    pthread_mutex_unlock(&memory_.layout_->mutex);
}

RoomState& RoomMemory::Access::operator*() const {
    return memory_.layout_->room;
}

SpeakerRing RoomMemory::Access::speakers() const {
    return {memory_.layout_->ring, memory_.layout_->samples()};
}

/// All of the memory is claimed now: later, on a full file system, touching it would be fatal.
RoomMemory RoomMemory::create(int file, const RoomDescription& description, double history) {
    const std::size_t speakers = description.speakers.size();
    const std::size_t capacity =
        kBufferedFrames + static_cast<std::size_t>(std::ceil(history * kRates.back()));
    const std::size_t size = sizeof(Layout) + capacity * speakers * sizeof(float);
    if (ftruncate(file, 0) != 0)
        fail(errno, "ftruncate");
    if (const int error = posix_fallocate(file, 0, static_cast<off_t>(size)); error != 0)
        fail(error, std::to_string(size) + " bytes");

    Mapping layout = map(file, size);
    makeRobust(layout->mutex);
    layout->room.lockStep = description.pace.lockStep;
    layout->room.pacing = {monotonicNow(), description.pace.speed};
    layout->room.clear(Role::kPlayback);
    layout->room.clear(Role::kCapture);
    layout->ring.speakers = static_cast<std::uint32_t>(speakers);
    layout->ring.capacity = capacity;
    layout->version = Layout::kVersion;
    return RoomMemory(std::move(layout));
}

RoomMemory RoomMemory::attach(int file) {
    struct stat status {};
    if (fstat(file, &status) != 0)
        fail(errno, "fstat");
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size < sizeof(Layout))
        fail(EPROTO, "too small");
    Mapping layout = map(file, size);
    if (layout->version != Layout::kVersion)
        fail(EPROTO, "of another version");
    return RoomMemory(std::move(layout));
}

std::size_t RoomMemory::speakers() const {
    return layout_->ring.speakers;
}

RoomMemory::Mapping RoomMemory::map(int file, std::size_t size) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED)
        fail(errno, "mmap");
    return {static_cast<Layout*>(memory), Unmap{size}};
}

void RoomMemory::Unmap::operator()(Layout* layout) const {
    munmap(layout, size);
}

}  // namespace roomsim
