// Many threads at once on one tree. The assertions are about order and completeness; data races
// are found by running these tests under the thread sanitizer.

#include "TestWorker.h"
#include "platform/cm/CurrentTree.h"
#include "sdk/cm/CMInitWatcher.h"
#include "sdk/cm/CMNode.h"
#include "support/WaitFor.h"

#include <QThread>
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

using platform::Change;
using platform::CurrentTree;
using platform::Subscription;
using platform::Tree;
using testing::ElementsAre;

namespace {

const CMPath kPath(QStringLiteral("test/value"));
const CMPath kNode(QStringLiteral("test/node"));

constexpr int kWriters = 4;
constexpr int kWrites = 500;  // of each writer

/// A thread with an event loop. `setUp` and `tearDown` run in it.
class LoopThread {
public:
    LoopThread() {
        context_.moveToThread(&thread_);
        thread_.start();
    }
    ~LoopThread() {
        thread_.quit();
        thread_.wait();
    }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    void run(const std::function<void()>& action) {
        QMetaObject::invokeMethod(&context_, action, Qt::BlockingQueuedConnection);
    }

private:
    QThread thread_;
    QObject context_;
};

class TreeStressTest : public testing::Test {
protected:
    TreeStressTest() { tree_->provide({kPath, VeskValue::ofI32(0), false, false}); }

    void write(const CMPath& path, int value) {
        CMRoot()->setValue(path, VeskValue::ofI32(value), {});
    }

    /// Calls `write(writer, number)` from several threads and waits for them.
    template <typename Write>
    void writeFromManyThreads(const Write& write) {
        std::vector<std::thread> threads;
        for (int writer = 0; writer < kWriters; ++writer)
            threads.emplace_back([&write, writer] {
                for (int i = 0; i < kWrites; ++i)
                    write(writer, i);
            });
        for (std::thread& thread : threads)
            thread.join();
    }

    const std::shared_ptr<Tree> tree_{std::make_shared<Tree>()};
    const CurrentTree current_{tree_};
};

/// The last reported value is the last value, and no value of one writer comes before an earlier
/// one of the same writer.
TEST_F(TreeStressTest, ConcurrentChangesOfOnePathAreReportedInOrder) {
    std::vector<int> seen;  // no lock: callbacks do not overlap
    const Subscription subscription = tree_->subscribe(
        kPath, [&seen](const Change& change) { seen.push_back(change.value.i32_()); });
    writeFromManyThreads([this](int writer, int i) { write(kPath, writer * 100000 + i + 1); });

    EXPECT_EQ(seen.size(), static_cast<std::size_t>(kWriters * kWrites));
    EXPECT_EQ(VeskValue::ofI32(seen.back()), tree_->read(kPath));
    std::vector<int> last(kWriters, 0);
    for (const int value : seen) {
        int& before = last[static_cast<std::size_t>(value / 100000)];
        EXPECT_LT(before, value % 100000);
        before = value % 100000;
    }
}

TEST_F(TreeStressTest, ItemEndsWithTheLastValue) {
    LoopThread thread;
    std::unique_ptr<CMInitWatcher> watcher;
    CMValueItem* item = nullptr;
    std::atomic<int> lastReported{0};
    int lastOld = 0;
    thread.run([&] {
        watcher = std::make_unique<CMInitWatcher>(nullptr, QStringLiteral("Stress"));
        item = watcher->newCMValueItem(kPath, [&](CMValueItem* created) {
            QObject::connect(created, &CMValueItem::changed,
                             [&](const VeskValue& newValue, const VeskValue& oldValue) {
                                 EXPECT_EQ(oldValue.i32_(), lastOld);
                                 EXPECT_NE(newValue, oldValue);
                                 lastOld = newValue.i32_();
                                 lastReported = lastOld;
                             });
        });
    });
    writeFromManyThreads([this](int writer, int i) { write(kPath, writer * 100000 + i + 1); });
    const int last = tree_->read(kPath)->i32_();
    EXPECT_TRUE(processEventsUntil([&] { return lastReported == last; }));
    EXPECT_EQ(item->value(), VeskValue::ofI32(last));
    thread.run([&] { watcher.reset(); });
}

TEST_F(TreeStressTest, WatchersComeAndGoWhileOthersWrite) {
    std::atomic<bool> stop{false};
    std::atomic<int> reports{0};
    std::vector<std::unique_ptr<LoopThread>> threads(2);
    for (auto& thread : threads)
        thread = std::make_unique<LoopThread>();
    std::thread writer([&] {
        for (int i = 1; !stop; ++i)
            write(kPath, i);
    });
    for (int round = 0; round < 200; ++round) {
        for (const auto& thread : threads) {
            std::shared_ptr<CMInitWatcher> watcher;
            thread->run([&] {
                watcher = std::make_shared<CMInitWatcher>(nullptr, QStringLiteral("Stress"));
                QObject::connect(watcher->newCMValueItem(kPath, {}), &CMValueItem::changed,
                                 [&reports] { ++reports; });
            });
            EXPECT_TRUE(round > 0 || processEventsUntil([&] { return reports > 0; }));
            thread->run([&] { watcher.reset(); });
        }
    }
    stop = true;
    writer.join();
}

TEST_F(TreeStressTest, SubscriptionsComeAndGoWhileOthersWrite) {
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int i = 1; !stop; ++i)
            write(kPath, i);
    });
    int calls = 0;  // no lock: no call runs once the subscription has ended
    while (calls < 200) {
        {
            const Subscription subscription =
                tree_->subscribeAll([&calls](const Change&) { ++calls; });
            std::this_thread::yield();
        }
        const int ended = calls;
        std::this_thread::yield();
        EXPECT_EQ(calls, ended);
    }
    stop = true;
    writer.join();
}

/// Each request is answered: by the worker, or because it has gone.
TEST_F(TreeStressTest, WorkersComeAndGoWhileOthersWriteToThem) {
    LoopThread thread;
    std::atomic<bool> stop{false};
    std::atomic<int> accepted{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> clients;
    for (int client = 0; client < 2; ++client)
        clients.emplace_back([&] {
            for (int i = 0; !stop; ++i) {
                const auto reply = CMReply<QVariant>::create();
                CMRoot()->setValue(kNode, VeskValue::ofI32(i), reply);
                ASSERT_TRUE(reply.waitForFinished(20000));
                ++(reply.error().isError() ? refused : accepted);
            }
        });
    std::unique_ptr<TestWorker> worker;
    for (int round = 0; round < 100; ++round) {
        thread.run([&] {
            worker = std::make_unique<TestWorker>();
            CMValueNode::create(worker->nodes(), kNode);
        });
        thread.run([&] { worker.reset(); });
    }
    EXPECT_TRUE(processEventsUntil([&] { return refused > 0; }));
    thread.run([&] {
        worker = std::make_unique<TestWorker>();
        CMValueNode::create(worker->nodes(), kNode);
    });
    EXPECT_TRUE(processEventsUntil([&] { return accepted > 0; }));
    stop = true;
    for (std::thread& client : clients)
        client.join();
    thread.run([&] { worker.reset(); });
}

TEST_F(TreeStressTest, WritersReadTheirOwnWrites) {
    for (int writer = 0; writer < kWriters; ++writer)
        tree_->provide({CMPath(QString::number(writer)), VeskValue::ofI32(-1), false, false});
    writeFromManyThreads([this](int writer, int i) {
        const CMPath path(QString::number(writer));
        write(path, i);
        EXPECT_EQ(VeskValue(CMRoot()->getValue(path)).i32_(), i);
    });
}

}  // namespace
