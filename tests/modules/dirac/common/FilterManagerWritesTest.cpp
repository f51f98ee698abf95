#include "modules/dirac/common/FilterManagerFixture.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

// How the filter manager writes: in which order, and what it waits for.

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Write {
    CMPath path;
    CMReply<QVariant> reply;
};

/// The writes to the tree, held back: nothing is changed and nobody is answered.
class HeldWrites {
public:
    void add(const Write& write) {
        const std::lock_guard lock(mutex_);
        writes_.push_back(write);
        added_.notify_all();
    }

    Write waitForFirst() {
        std::unique_lock lock(mutex_);
        added_.wait(lock, [this] { return !writes_.empty(); });
        return writes_.front();
    }

    /// Gives the writes so far and forgets them.
    std::vector<Write> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(writes_, {});
    }

private:
    std::mutex mutex_;
    std::condition_variable added_;
    std::vector<Write> writes_;  // guarded by mutex_
};

HeldWrites heldWrites;

}  // namespace

// The linker leads the module's CMAbstractWorker::setValue here.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void __wrap__ZN16CMAbstractWorker8setValueERK6CMPathRK9VeskValueRK7CMReplyI8QVariantE(
    CMAbstractWorker* /*self*/, const CMPath& path, const VeskValue& /*value*/,
    const CMReply<QVariant>& reply) {
    heldWrites.add({path, reply});
}
// NOLINTEND(bugprone-reserved-identifier)

class FilterManagerWritesTest : public FilterManagerFixture {
protected:
    FilterManagerWritesTest() { heldWrites.take(); }

    /// Where the manager has written since the last question; nobody waits for these writes.
    static std::vector<QString> paths() {
        std::vector<QString> paths;
        for (const Write& write : heldWrites.take()) {
            EXPECT_TRUE(write.reply.isEmpty()) << write.path.toString().toStdString();
            paths.push_back(write.path.toString());
        }
        return paths;
    }

    const QString settingsPath{VeskDiracSlotsSettingsPath().toString()};
    const QString runtimePath{VeskDiracSlotsRuntimePath().toString()};
    processing::FilterManager manager = makeManager();
};

TEST_F(FilterManagerWritesTest, ClientStatusIsAwaited) {
    std::atomic<bool> isDone{false};
    std::thread client([&] {
        manager.clientConnected(true);
        isDone = true;
    });
    const Write write = heldWrites.waitForFirst();
    EXPECT_EQ(write.path, VeskTalvorCorbelDiracClientStatusPath());
    EXPECT_FALSE(write.reply.isEmpty());
    EXPECT_FALSE(isDone);

    write.reply.setValue(QVariant(true));
    client.join();
    EXPECT_TRUE(isDone);
}

TEST_F(FilterManagerWritesTest, ARefusedClientStatusIsNotInspected) {
    std::atomic<bool> isDone{false};
    std::thread client([&] {
        manager.clientConnected(false);
        isDone = true;
    });
    heldWrites.waitForFirst().reply.setError(CMError(QStringLiteral("refused by the test")));
    client.join();
    EXPECT_TRUE(isDone);
}

TEST_F(FilterManagerWritesTest, ProcessingWritesTheFlagAndThenTheSettings) {
    manager.enableProcessing(true, true);
    EXPECT_THAT(paths(), ElementsAre(VeskTalvorCorbelFilteringEnabled().toString(), settingsPath));
}

TEST_F(FilterManagerWritesTest, BypassWritesTheRuntimeValueOnly) {
    manager.disableFilter();
    EXPECT_THAT(paths(), ElementsAre(runtimePath));
    manager.enableFilter();
    EXPECT_THAT(paths(), ElementsAre(runtimePath));
}

TEST_F(FilterManagerWritesTest, PlaybackStatusIsNotAwaited) {
    manager.playbackLoopActive(true);
    EXPECT_THAT(paths(), ElementsAre(VeskTalvorCorbelDiracCalibrationStatusPath().toString()));
}

TEST_F(FilterManagerWritesTest, EachChangeOfASlotIsOneWriteOfTheSettings) {
    manager.createFilterSlot(1, "one", "", "", 0);
    EXPECT_THAT(paths(), ElementsAre(settingsPath));
    manager.setFilterForSlot(1, {}, {});
    EXPECT_THAT(paths(), ElementsAre(settingsPath));
    manager.updateSlot(1, "new", "", "");
    EXPECT_THAT(paths(), ElementsAre(settingsPath));
    manager.setActiveSlot(1);
    EXPECT_THAT(paths(), ElementsAre(settingsPath));
    manager.deleteSlot(1);
    EXPECT_THAT(paths(), ElementsAre(settingsPath));
}

TEST_F(FilterManagerWritesTest, DeletingAnUnknownSlotStillRewritesTheSettings) {
    manager.deleteSlot(5);
    EXPECT_THAT(paths(), ElementsAre(settingsPath));
}

TEST_F(FilterManagerWritesTest, RefusedChangesWriteNothing) {
    manager.createFilterSlot(8, "beyond", "", "", 0);
    manager.updateSlot(1, "unknown", "", "");
    manager.setFilterForSlot(1, {}, {});
    manager.setActiveSlot(1);
    manager.setActiveSlot(-1);
    EXPECT_THAT(paths(), IsEmpty());
}
