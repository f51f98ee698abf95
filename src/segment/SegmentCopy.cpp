#include "segment/SegmentCopy.h"

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

int findSegment(int key) {
    const int id = shmget(key, 0, 0);
    if (id < 0)
        fail(key, "open", errno);
    return id;
}

/// An attachment that ends with the object.
class Attachment {
public:
    Attachment(int key, int id) : address_(shmat(id, nullptr, SHM_RDONLY)) {
        if (!isAttached())
            fail(key, "attach", errno);
    }
    ~Attachment() { shmdt(address_); }
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

    const void* address() const { return address_; }

private:
    // shmat() reports a failure by this address.
    bool isAttached() const { return reinterpret_cast<std::intptr_t>(address_) != -1; }

    void* const address_;
};

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

}  // namespace

void checkSegment(int key) {
    checkSize(key, findSegment(key));
}

void copySegment(int key, DiracConfiguration* image) {
    const int id = findSegment(key);
    checkSize(key, id);
    const Attachment attachment(key, id);
    const auto* source = static_cast<const DiracSegment*>(attachment.address());
    checkMagic(key, source->magic);
    std::memcpy(image, &source->configuration, sizeof(DiracConfiguration));
}

}  // namespace segment
