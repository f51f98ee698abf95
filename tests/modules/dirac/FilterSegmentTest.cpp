#include "modules/dirac/FilterSegment.h"
#include "modules/dirac/OrdinaryUser.h"
#include "platform/services/ScratchKey.h"

#include <gmock/gmock.h>

#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

/// The system calls that fail while a test wants it.
struct Faults {
    bool attach{false};
    bool status{false};
    bool detach{false};
    bool remove{false};
    bool lockMemory{false};
};

Faults faults;

template <typename Result>
Result failed(int error) {
    errno = error;
    return (Result)-1;  // NOLINT(performance-no-int-to-ptr)
}

}  // namespace

// The linker leads the segment's system calls here.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __real_shmat(int id, const void* address, int flags);
int __real_shmctl(int id, int command, shmid_ds* status);
int __real_shmdt(const void* address);
int __real_mlock(const void* address, size_t size);

void* __wrap_shmat(int id, const void* address, int flags) {
    return faults.attach ? failed<void*>(ENOMEM) : __real_shmat(id, address, flags);
}

int __wrap_shmctl(int id, int command, shmid_ds* status) {
    const bool fails =
        (command == IPC_STAT && faults.status) || (command == IPC_RMID && faults.remove);
    return fails ? failed<int>(EPERM) : __real_shmctl(id, command, status);
}

int __wrap_shmdt(const void* address) {
    return faults.detach ? failed<int>(EINVAL) : __real_shmdt(address);
}

int __wrap_mlock(const void* address, size_t size) {
    return faults.lockMemory ? failed<int>(ENOMEM) : __real_mlock(address, size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

constexpr std::size_t kSize = 139848;
using Bytes = std::vector<unsigned char>;

template <typename T>
void put(Bytes& bytes, std::size_t offset, const T& value) {
    std::memcpy(&bytes[offset], &value, sizeof value);
}

/// The segment as its first user leaves it, written down offset by offset.
Bytes defaultBytes() {
    Bytes bytes(kSize, 0);
    put(bytes, 0, std::uint32_t{0x83474453});
    for (std::size_t record = 0; record < 20; ++record) {
        const std::size_t offset = 100 + record * 4600;
        put(bytes, offset + 4, std::uint32_t{1});
        put(bytes, offset + 12, 1.0F);
        put(bytes, offset + 4596, 1.0F);
    }
    put(bytes, 92100, std::uint32_t{88200});
    put(bytes, 92104, std::uint32_t{96000});
    put(bytes, 92108, std::uint32_t{176400});
    put(bytes, 92112, std::uint32_t{192000});
    bytes[139844] = 1;
    return bytes;
}

/// Somebody else's attachment to the segment of a key.
class OtherUser {
public:
    explicit OtherUser(int id) : memory_(__real_shmat(id, nullptr, 0)) {}
    ~OtherUser() { __real_shmdt(memory_); }
    OtherUser(const OtherUser&) = delete;
    OtherUser& operator=(const OtherUser&) = delete;

    Bytes bytes() const {
        const auto* begin = static_cast<const unsigned char*>(memory_);
        return {begin, begin + kSize};
    }
    template <typename T>
    void write(std::size_t offset, const T& value) {
        std::memcpy(static_cast<char*>(memory_) + offset, &value, sizeof value);
    }

private:
    void* const memory_;
};

std::unique_ptr<DiracConfiguration> imageWithStamp(std::int64_t stamp) {
    auto image = std::make_unique<DiracConfiguration>();
    image->timeStamp = stamp;
    image->bypass = 0;
    return image;
}

}  // namespace

class FilterSegmentTest : public testing::Test {
protected:
    FilterSegmentTest() { faults = {}; }
    ~FilterSegmentTest() override {
        faults = {};
        remove();
    }

    /// -1: there is none.
    int id() const { return shmget(key.get(), 0, 0); }
    int create(std::size_t size, int permissions = 0666) const {
        return shmget(key.get(), size, IPC_CREAT | IPC_EXCL | permissions);
    }
    void remove() const {
        if (id() >= 0)
            __real_shmctl(id(), IPC_RMID, nullptr);
    }
    shmid_ds status() const {
        shmid_ds result{};
        __real_shmctl(id(), IPC_STAT, &result);
        return result;
    }
    std::string withKey(const std::string& text) const {
        return text + " with key '" + std::to_string(key.get()) + "'";
    }

    /// Runs init with what it prints.
    bool init(FilterSegment& segment) {
        testing::internal::CaptureStderr();
        const bool result = segment.sharedMemInit(created);
        printed = testing::internal::GetCapturedStderr();
        return result;
    }
    void discard(FilterSegment& segment) {
        testing::internal::CaptureStderr();
        segment.sharedMemDiscard();
        printed = testing::internal::GetCapturedStderr();
    }
    void publish(FilterSegment& segment, const DiracConfiguration& image) {
        testing::internal::CaptureStderr();
        segment.publish(image);
        printed = testing::internal::GetCapturedStderr();
    }
    static void expectNoSegment(const FilterSegment& segment) {
        EXPECT_EQ(segment.shmId, -1);
        EXPECT_EQ(segment.address, nullptr);
    }

    const ScratchKey key;
    bool created{true};
    std::string printed;
};

TEST_F(FilterSegmentTest, KeyIs1234) {
    const FilterSegment segment;
    EXPECT_EQ(segment.key, 1234);
    EXPECT_EQ(segment.shmId, -1);
    EXPECT_EQ(segment.address, nullptr);
}

// Creating and joining.

TEST_F(FilterSegmentTest, FirstInitCreatesTheDefaultImage) {
    FilterSegment segment(key.get());
    EXPECT_TRUE(init(segment));

    EXPECT_TRUE(created);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(segment.shmId, id());
    EXPECT_EQ(status().shm_segsz, kSize);
    EXPECT_EQ(status().shm_perm.mode & 0777, 0666);
    EXPECT_EQ(OtherUser(id()).bytes(), defaultBytes());
}

TEST_F(FilterSegmentTest, LeftoverSegmentIsInitialisedAnew) {
    const int leftover = create(kSize);
    OtherUser(leftover).write(0, std::uint32_t{0x12345678});
    OtherUser(leftover).write(5000, std::uint32_t{99});

    FilterSegment segment(key.get());
    EXPECT_TRUE(init(segment));

    EXPECT_TRUE(created);
    EXPECT_EQ(segment.shmId, leftover);
    EXPECT_EQ(OtherUser(leftover).bytes(), defaultBytes());
}

TEST_F(FilterSegmentTest, SecondUserFindsTheMagicAndLeavesTheContent) {
    FilterSegment first(key.get());
    init(first);
    publish(first, *imageWithStamp(77));
    const Bytes before = OtherUser(id()).bytes();

    FilterSegment second(key.get());
    EXPECT_TRUE(init(second));

    EXPECT_FALSE(created);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(second.shmId, first.shmId);
    EXPECT_EQ(OtherUser(id()).bytes(), before);
    EXPECT_EQ(second.address->configuration.timeStamp, 77);
}

TEST_F(FilterSegmentTest, ForeignMagicIsRefusedAndDetached) {
    OtherUser other(create(kSize));
    other.write(0, std::uint32_t{0x12345678});
    const Bytes before = other.bytes();

    FilterSegment segment(key.get());
    EXPECT_FALSE(init(segment));

    EXPECT_FALSE(created);
    EXPECT_EQ(printed, "sharedMemInit() failed, magic ID mismatch!\n");
    expectNoSegment(segment);
    EXPECT_EQ(status().shm_nattch, 1U);
    EXPECT_EQ(other.bytes(), before);
}

TEST_F(FilterSegmentTest, UnusedSegmentOfTheWrongSizeIsReplaced) {
    const int old = create(100);
    FilterSegment segment(key.get());
    EXPECT_TRUE(init(segment));

    EXPECT_TRUE(created);
    EXPECT_EQ(printed, "");
    EXPECT_NE(segment.shmId, old);
    EXPECT_EQ(status().shm_segsz, kSize);
    EXPECT_EQ(OtherUser(id()).bytes(), defaultBytes());
}

TEST_F(FilterSegmentTest, UsedSegmentOfTheWrongSizeIsLeftAlone) {
    const int old = create(100);
    const OtherUser other(old);
    FilterSegment segment(key.get());
    EXPECT_TRUE(init(segment)) << "the result is whether errno is set";

    EXPECT_FALSE(created);
    EXPECT_EQ(printed,
              withKey("sharedMemInit(): failed to attach to existing shared memory segment") +
                  ", errno: 22: Invalid argument\n");
    expectNoSegment(segment);
    EXPECT_EQ(id(), old);
}

TEST_F(FilterSegmentTest, WrongSizeWithoutStatusIsLeftAlone) {
    const int old = create(100);
    faults.status = true;
    FilterSegment segment(key.get());
    EXPECT_TRUE(init(segment));
    EXPECT_EQ(printed,
              withKey("sharedMemInit(): failed to attach to existing shared memory segment") +
                  ", errno: 1: Operation not permitted\n");
    expectNoSegment(segment);
    EXPECT_EQ(id(), old);
}

TEST_F(FilterSegmentTest, WrongSizeThatCannotBeRemovedIsLeftAlone) {
    create(100);
    faults.remove = true;
    FilterSegment segment(key.get());
    EXPECT_TRUE(init(segment));
    EXPECT_EQ(printed,
              withKey("sharedMemInit(): failed to attach to existing shared memory segment") +
                  ", errno: 1: Operation not permitted\n");
    expectNoSegment(segment);
}

TEST_F(FilterSegmentTest, SegmentWithoutPermissionIsNotOpened) {
    create(kSize, 0);
    FilterSegment segment(key.get());
    {
        const OrdinaryUser user;
        EXPECT_TRUE(init(segment));
    }
    EXPECT_FALSE(created);
    EXPECT_EQ(printed,
              withKey("sharedMemInit(): failed to attach to existing shared memory segment") +
                  ", errno: 13: Permission denied\n");
    expectNoSegment(segment);
}

TEST_F(FilterSegmentTest, FailedAttachLeavesNoSegment) {
    faults.attach = true;
    FilterSegment segment(key.get());
    EXPECT_TRUE(init(segment));

    EXPECT_FALSE(created);
    EXPECT_EQ(printed, withKey("sharedMemInit(): failed to attach to shared memory segment") +
                           ", err = -12\n");
    expectNoSegment(segment);
}

TEST_F(FilterSegmentTest, FailedStatusDetaches) {
    faults.status = true;
    FilterSegment segment(key.get());
    EXPECT_TRUE(init(segment));

    EXPECT_FALSE(created);
    EXPECT_EQ(
        printed,
        withKey("sharedMemInit(): failed to retrieve stats about shared memory segment") + "\n" +
            withKey("sharedMemDiscard(): failed to retrieve stats about shared memory segment") +
            "\n");
    expectNoSegment(segment);
    EXPECT_EQ(status().shm_nattch, 0U);
}

TEST_F(FilterSegmentTest, MemoryThatCannotBeLockedIsUsedAllTheSame) {
    faults.lockMemory = true;
    FilterSegment segment(key.get());
    EXPECT_TRUE(init(segment));
    EXPECT_TRUE(created);
    EXPECT_EQ(printed, "");
}

// Publishing.

TEST_F(FilterSegmentTest, ImageIsCopiedBehindTheMagic) {
    FilterSegment segment(key.get());
    init(segment);
    OtherUser other(id());
    other.write(4, std::uint32_t{0xAABBCCDD});

    auto image = imageWithStamp(0x1122334455667788);
    image->padding = {1, 2, 3};
    publish(segment, *image);

    Bytes expected = defaultBytes();
    put(expected, 4, std::uint32_t{0xAABBCCDD});  // never rewritten
    put(expected, 8, *image);
    EXPECT_EQ(other.bytes(), expected);
    EXPECT_EQ(printed, "");
}

TEST_F(FilterSegmentTest, PublicationWithoutASegmentIsRefused) {
    FilterSegment segment(key.get());
    publish(segment, *imageWithStamp(1));
    EXPECT_EQ(printed, "set(): failed to set new value, shared memory handle is not valid\n");
    EXPECT_EQ(id(), -1);
}

TEST_F(FilterSegmentTest, PublicationAfterAFailedInitIsRefused) {
    faults.attach = true;
    FilterSegment segment(key.get());
    init(segment);
    publish(segment, *imageWithStamp(1));
    EXPECT_EQ(printed, "set(): failed to set new value, shared memory handle is not valid\n");
}

TEST_F(FilterSegmentTest, PublicationAfterDiscardIsRefused) {
    FilterSegment segment(key.get());
    init(segment);
    segment.sharedMemDiscard();
    publish(segment, *imageWithStamp(1));
    EXPECT_EQ(printed, "set(): failed to set new value, shared memory handle is not valid\n");
}

TEST_F(FilterSegmentTest, PublicationWaitsForTheReader) {
    FilterSegment segment(key.get());
    init(segment);
    SharedLock reader(key.get());
    ASSERT_TRUE(reader.lock());

    const auto image = imageWithStamp(5);
    std::thread publisher([&] { segment.publish(*image); });
    key.waitForBlockedLockers(1);
    EXPECT_EQ(OtherUser(id()).bytes(), defaultBytes()) << "never a half-written image";
    reader.unlock();
    publisher.join();

    EXPECT_EQ(segment.address->configuration.timeStamp, 5);
    ASSERT_TRUE(reader.lock()) << "the publisher gave the lock back";
    reader.unlock();
}

TEST_F(FilterSegmentTest, PublicationWithoutTheLockIsRefused) {
    // A private segment; a private lock would keep nobody away, so there is none.
    FilterSegment segment(IPC_PRIVATE);
    init(segment);
    ASSERT_NE(segment.address, nullptr);
    publish(segment, *imageWithStamp(5));
    EXPECT_EQ(printed, "set(): failed to set new value, shared memory lock is not available\n");
    EXPECT_EQ(OtherUser(segment.shmId).bytes(), defaultBytes());
}

// Discarding.

TEST_F(FilterSegmentTest, LastUserRemovesTheSegment) {
    FilterSegment segment(key.get());
    init(segment);
    discard(segment);
    EXPECT_EQ(printed, "");
    expectNoSegment(segment);
    EXPECT_EQ(id(), -1);
}

TEST_F(FilterSegmentTest, SegmentStaysForItsOtherUsers) {
    FilterSegment segment(key.get());
    init(segment);
    const OtherUser other(id());
    discard(segment);
    EXPECT_EQ(printed, "");
    expectNoSegment(segment);
    ASSERT_GE(id(), 0);
    EXPECT_EQ(status().shm_nattch, 1U);
    EXPECT_EQ(other.bytes(), defaultBytes());
}

TEST_F(FilterSegmentTest, DiscardingNothingDoesNothing) {
    faults = {true, true, true, true, true};
    FilterSegment segment(key.get());
    discard(segment);
    EXPECT_EQ(printed, "");
}

TEST_F(FilterSegmentTest, DestructionDiscards) {
    {
        FilterSegment segment(key.get());
        init(segment);
    }
    EXPECT_EQ(id(), -1);
}

TEST_F(FilterSegmentTest, DiscardWithoutStatusDetachesOnly) {
    FilterSegment segment(key.get());
    init(segment);
    faults.status = true;
    discard(segment);
    EXPECT_EQ(
        printed,
        withKey("sharedMemDiscard(): failed to retrieve stats about shared memory segment") + "\n");
    expectNoSegment(segment);
    EXPECT_GE(id(), 0);
}

TEST_F(FilterSegmentTest, FailedDetachIsPrintedAndKeepsTheHandle) {
    FilterSegment segment(key.get());
    init(segment);
    const OtherUser other(id());
    faults.detach = true;
    discard(segment);
    EXPECT_EQ(printed,
              withKey("sharedMemDiscard(): failed to detach from shared memory segment") + "\n");
    EXPECT_EQ(segment.shmId, id());
    faults.detach = false;
}

TEST_F(FilterSegmentTest, LastUserRemovesTheSegmentEvenWhenTheDetachFails) {
    FilterSegment segment(key.get());
    init(segment);
    faults.detach = true;
    discard(segment);
    EXPECT_EQ(printed,
              withKey("sharedMemDiscard(): failed to detach from shared memory segment") + "\n");
    EXPECT_EQ(segment.shmId, -1);
    EXPECT_EQ(id(), -1);
    faults.detach = false;
    __real_shmdt(segment.address);
}

TEST_F(FilterSegmentTest, FailedRemovalIsPrinted) {
    FilterSegment segment(key.get());
    init(segment);
    faults.remove = true;
    discard(segment);
    EXPECT_EQ(printed,
              withKey("sharedMemDiscard(): failed to destroy shared memory segment") + "\n");
    EXPECT_GE(segment.shmId, 0);
    EXPECT_EQ(status().shm_nattch, 0U);

    publish(segment, *imageWithStamp(1));
    EXPECT_EQ(printed, "set(): failed to set new value, shared memory handle is not valid\n")
        << "what is detached is not written to";
}

TEST_F(FilterSegmentTest, SegmentThatAnotherRemovedIsReportedOnce) {
    FilterSegment segment(key.get());
    init(segment);
    remove();
    discard(segment);
    EXPECT_EQ(printed,
              withKey("sharedMemDiscard(): failed to destroy shared memory segment") + "\n");
    discard(segment);
    EXPECT_EQ(printed, "");
}
