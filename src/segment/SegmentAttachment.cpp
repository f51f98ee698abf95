#include "segment/SegmentAttachment.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>
#include <system_error>

namespace segment {

namespace {

std::string segmentName(int key) {
    return "segment with key " + std::to_string(key);
}

/// The segment was removed, or was never there.
bool meansAbsent(int error) {
    return error == ENOENT || error == EIDRM || error == EINVAL;
}

[[noreturn]] void fail(int key, const std::string& action, int error) {
    if (meansAbsent(error))
        throw SegmentAbsent("there is no " + segmentName(key) + ": no device runs here");
    throw SegmentError("cannot " + action + " the " + segmentName(key) + ": " +
                       std::generic_category().message(error));
}

void checkSize(int key, int id) {
    shmid_ds status{};
    if (shmctl(id, IPC_STAT, &status) != 0)
        fail(key, "examine", errno);
    if (status.shm_segsz == sizeof(DiracSegment))
        return;
    throw SegmentError("the " + segmentName(key) + " is not the DSP's image: it has " +
                       std::to_string(status.shm_segsz) + " bytes, not " +
                       std::to_string(sizeof(DiracSegment)));
}

void checkMagic(int key, std::uint32_t magic) {
    if (magic == DiracSegment::kMagic)
        return;
    std::ostringstream text;
    text << "the " << segmentName(key) << " is not the DSP's image: it begins with 0x" << std::hex
         << std::setfill('0') << std::setw(8) << magic << ", not 0x" << DiracSegment::kMagic;
    throw SegmentError(text.str());
}

const DiracSegment* attach(int key, int id) {
    void* const address = shmat(id, nullptr, SHM_RDONLY);
    // shmat() reports a failure by this address.
    if (reinterpret_cast<std::intptr_t>(address) == -1)
        fail(key, "attach", errno);
    return static_cast<const DiracSegment*>(address);
}

}  // namespace

int findSegment(int key) {
    const int id = shmget(key, 0, 0);
    if (id < 0)
        fail(key, "open", errno);
    checkSize(key, id);
    return id;
}

SegmentAttachment::SegmentAttachment(int key)
    : key_(key), id_(findSegment(key)), segment_(attach(key, id_)) {
}

SegmentAttachment::~SegmentAttachment() {
    shmdt(segment_);
}

SegmentAttachment::Stamp SegmentAttachment::peek() const {
    return {__atomic_load_n(&segment_->magic, __ATOMIC_RELAXED),
            __atomic_load_n(&segment_->configuration.timeStamp, __ATOMIC_RELAXED)};
}

void SegmentAttachment::copy(DiracConfiguration* image) const {
    checkMagic(key_, segment_->magic);
    std::memcpy(image, &segment_->configuration, sizeof(DiracConfiguration));
}

}  // namespace segment
