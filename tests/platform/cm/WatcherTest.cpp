#include "TestWorker.h"
#include "platform/cm/CurrentTree.h"
#include "sdk/cm/CMInitWatcher.h"
#include "sdk/cm/CMNode.h"
#include "support/WaitFor.h"

#include <QThread>
#include <gmock/gmock.h>

using platform::CurrentTree;
using platform::Tree;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

const CMPath kPath(QStringLiteral("test/value"));
const CMPath kOther(QStringLiteral("test/other"));

class WatcherTest : public testing::Test {
protected:
    WatcherTest() {
        QObject::connect(watcher_.get(), &CMInitWatcher::done, [this] { ++done_; });
    }

    void provide(const CMPath& path, int initial) {
        tree_->provide({path, VeskValue::ofI32(initial), false, false});
    }

    void write(const CMPath& path, int value) {
        CMRoot()->setValue(path, VeskValue::ofI32(value), {});
    }

    /// Watches a path and records new and old value of each change.
    CMValueItem* watch(const CMPath& path) {
        return watcher_->newCMValueItem(path, [this](CMValueItem* item) {
            QObject::connect(item, &CMValueItem::changed,
                             [this](const VeskValue& newValue, const VeskValue& oldValue) {
                                 changes_.emplace_back(newValue.i32_(), oldValue.i32_());
                             });
        });
    }

    const std::shared_ptr<Tree> tree_{std::make_shared<Tree>()};
    const CurrentTree current_{tree_};
    QObject parent_;
    std::unique_ptr<CMInitWatcher> watcher_{
        std::make_unique<CMInitWatcher>(&parent_, QStringLiteral("Test"))};
    std::vector<std::pair<int, int>> changes_;
    int done_{0};
};

TEST_F(WatcherTest, WatcherCarriesItsNameAndParent) {
    EXPECT_EQ(watcher_->objectName(), QStringLiteral("Test"));
    EXPECT_EQ(watcher_->parent(), &parent_);
}

TEST_F(WatcherTest, ItemTakesOverPresentValueSilentlyAtRegistration) {
    provide(kPath, 4);
    const CMValueItem* const item = watch(kPath);
    EXPECT_EQ(item->path(), kPath);
    EXPECT_TRUE(item->hasValue());
    EXPECT_EQ(item->value(), VeskValue::ofI32(4));
    processAllEvents();
    EXPECT_THAT(changes_, IsEmpty());
}

TEST_F(WatcherTest, CreatedIsCalledAtOnceWithTheItemThatIsReturned) {
    provide(kPath, 4);
    CMValueItem* created = nullptr;
    EXPECT_EQ(watcher_->newCMValueItem(kPath, [&](CMValueItem* item) { created = item; }), created);
    EXPECT_EQ(watcher_->newCMValueItem(kPath, {})->value(), VeskValue::ofI32(4));
}

TEST_F(WatcherTest, ChangeIsReportedByEventLoopAndNotByTheWrite) {
    provide(kPath, 1);
    const CMValueItem* const item = watch(kPath);
    write(kPath, 2);
    EXPECT_THAT(changes_, IsEmpty());
    EXPECT_EQ(item->value(), VeskValue::ofI32(1));
    processAllEvents();
    EXPECT_THAT(changes_, ElementsAre(Pair(2, 1)));
    EXPECT_EQ(item->value(), VeskValue::ofI32(2));
}

TEST_F(WatcherTest, ItemHoldsTheNewValueDuringTheReport) {
    provide(kPath, 1);
    CMValueItem* const item = watch(kPath);
    VeskValue held;
    QObject::connect(item, &CMValueItem::changed, [&] { held = item->value(); });
    write(kPath, 2);
    processAllEvents();
    EXPECT_EQ(held, VeskValue::ofI32(2));
}

TEST_F(WatcherTest, HandlerWithOneParameterReceivesTheNewValue) {
    provide(kPath, 1);
    VeskValue received;
    QObject::connect(watch(kPath), &CMValueItem::changed,
                     [&received](const VeskValue& value) { received = value; });
    write(kPath, 2);
    processAllEvents();
    EXPECT_EQ(received, VeskValue::ofI32(2));
}

TEST_F(WatcherTest, ItemThatIsBehindSkipsToTheNewestValue) {
    provide(kPath, 1);
    watch(kPath);
    write(kPath, 2);
    write(kPath, 3);
    write(kPath, 4);
    processAllEvents();
    EXPECT_THAT(changes_, ElementsAre(Pair(4, 1)));
}

TEST_F(WatcherTest, NothingIsReportedWhenTheNewestIsTheReportedValue) {
    provide(kPath, 1);
    watch(kPath);
    write(kPath, 2);
    write(kPath, 1);
    processAllEvents();
    EXPECT_THAT(changes_, IsEmpty());
    write(kPath, 3);
    processAllEvents();
    EXPECT_THAT(changes_, ElementsAre(Pair(3, 1)));
}

TEST_F(WatcherTest, EqualWriteIsNotReported) {
    provide(kPath, 1);
    watch(kPath);
    write(kPath, 1);
    processAllEvents();
    EXPECT_THAT(changes_, IsEmpty());
}

TEST_F(WatcherTest, PathWithEveryTransitionReportsEachChangeInOrder) {
    tree_->provide({kPath, VeskValue::ofI32(0), false, true});
    watch(kPath);
    write(kPath, 1);
    write(kPath, 2);
    write(kPath, 1);
    processAllEvents();
    EXPECT_THAT(changes_, ElementsAre(Pair(1, 0), Pair(2, 1), Pair(1, 2)));
}

TEST_F(WatcherTest, WriteInHandlerIsReportedAfterTheHandler) {
    provide(kPath, 0);
    bool inHandler = false;
    QObject::connect(watch(kPath), &CMValueItem::changed, [&](const VeskValue& value) {
        EXPECT_FALSE(inHandler);
        inHandler = true;
        if (value.i32_() < 3)
            write(kPath, value.i32_() + 1);
        inHandler = false;
    });
    write(kPath, 1);
    processEventsUntil([this] { return changes_.size() == 3; });
    EXPECT_THAT(changes_, ElementsAre(Pair(1, 0), Pair(2, 1), Pair(3, 2)));
}

TEST_F(WatcherTest, ValuesThatAnswerEachOtherComeToRest) {
    provide(kPath, 0);
    provide(kOther, 0);
    QObject::connect(watch(kPath), &CMValueItem::changed,
                     [this](const VeskValue& value) { write(kOther, value.i32_()); });
    QObject::connect(watch(kOther), &CMValueItem::changed,
                     [this](const VeskValue& value) { write(kPath, value.i32_()); });
    for (int i = 1; i <= 1000; ++i)
        write(i % 2 == 0 ? kPath : kOther, i);
    processAllEvents();
    changes_.clear();
    for (int i = 0; i < 100; ++i)
        processAllEvents();
    EXPECT_THAT(changes_, IsEmpty());
    EXPECT_EQ(CMRoot()->getValue(kPath), CMRoot()->getValue(kOther));
}

TEST_F(WatcherTest, ItemCanBeRegisteredBeforeItsNodeExists) {
    const CMValueItem* const item = watch(kPath);
    EXPECT_FALSE(item->hasValue());
    EXPECT_TRUE(item->value().isEmpty());
    provide(kPath, 5);
    processAllEvents();
    EXPECT_TRUE(item->hasValue());
    EXPECT_THAT(changes_, ElementsAre(Pair(5, 0)));
}

TEST_F(WatcherTest, NewNodeIsKnownAndNothingIsReported) {
    const CMValueItem* const item = watch(kPath);
    TestWorker worker;
    CMValueNode::create(worker.nodes(), kPath);
    processAllEvents();
    EXPECT_TRUE(item->hasValue());
    EXPECT_EQ(done_, 1);
    EXPECT_THAT(changes_, IsEmpty());
}

TEST_F(WatcherTest, ItemKeepsItsValueWhenItsNodeLeavesTheTree) {
    CMValueItem* item = nullptr;
    {
        TestWorker worker;
        CMValueNode* const node = CMValueNode::create(worker.nodes(), kPath);
        item = watch(kPath);
        node->setValue(VeskValue::ofI32(2));
        processAllEvents();
    }
    processAllEvents();
    EXPECT_TRUE(item->hasValue());
    EXPECT_EQ(item->value(), VeskValue::ofI32(2));
    provide(kPath, 3);
    processAllEvents();
    EXPECT_THAT(changes_, ElementsAre(Pair(2, 0), Pair(3, 2)));
}

TEST_F(WatcherTest, DoneComesOnceFromTheEventLoop) {
    provide(kPath, 1);
    provide(kOther, 2);
    watch(kPath);
    watch(kOther);
    EXPECT_EQ(done_, 0);
    processAllEvents();
    EXPECT_EQ(done_, 1);
    write(kPath, 3);
    watch(kPath);
    processAllEvents();
    EXPECT_EQ(done_, 1);
}

TEST_F(WatcherTest, DoneWaitsForPathWithoutValue) {
    provide(kPath, 1);
    tree_->provide({kOther, {}, false, false});
    watch(kPath);
    watch(kOther);
    processAllEvents();
    EXPECT_EQ(done_, 0);
    write(kOther, 7);
    processAllEvents();
    EXPECT_EQ(done_, 1);
}

TEST_F(WatcherTest, DoneNeverComesForUnknownPath) {
    provide(kPath, 1);
    watch(kPath);
    watch(kOther);
    write(kPath, 2);
    processAllEvents();
    EXPECT_EQ(done_, 0);
}

TEST_F(WatcherTest, DoneComesAfterTheChangeThatCompletesTheValues) {
    watch(kPath);
    std::vector<QString> order;
    QObject::connect(watch(kPath), &CMValueItem::changed,
                     [&order] { order.push_back(QStringLiteral("changed")); });
    QObject::connect(watcher_.get(), &CMInitWatcher::done,
                     [&order] { order.push_back(QStringLiteral("done")); });
    provide(kPath, 1);
    processAllEvents();
    EXPECT_THAT(order, ElementsAre(QStringLiteral("changed"), QStringLiteral("done")));
}

TEST_F(WatcherTest, WatcherWithoutItemsIsNeverDone) {
    processAllEvents();
    EXPECT_EQ(done_, 0);
}

TEST_F(WatcherTest, HandlerCanDestroyTheWatcher) {
    provide(kPath, 1);
    provide(kOther, 1);
    QObject::connect(watch(kPath), &CMValueItem::changed, [this] { watcher_.reset(); });
    watch(kOther);
    write(kPath, 2);
    write(kOther, 2);
    processAllEvents();
    EXPECT_EQ(watcher_, nullptr);
    write(kPath, 3);
    processAllEvents();
    EXPECT_THAT(changes_, ElementsAre(Pair(2, 1)));
}

TEST_F(WatcherTest, DoneHandlerCanDestroyTheWatcher) {
    provide(kPath, 1);
    watch(kPath);
    QObject::connect(watcher_.get(), &CMInitWatcher::done, [this] { watcher_.reset(); });
    processAllEvents();
    EXPECT_EQ(watcher_, nullptr);
    EXPECT_EQ(done_, 1);
}

TEST_F(WatcherTest, DestroyedItemIsNotReportedTo) {
    provide(kPath, 1);
    const CMValueItem* const item = watch(kPath);
    write(kPath, 2);
    delete item;
    processAllEvents();
    EXPECT_THAT(changes_, IsEmpty());
}

TEST_F(WatcherTest, ChangesAreReportedInTheThreadOfTheWatcher) {
    provide(kPath, 1);
    QThread thread;
    auto* const context = new QObject;
    context->moveToThread(&thread);
    QObject::connect(&thread, &QThread::finished, context, &QObject::deleteLater);
    thread.start();
    std::atomic<QThread*> reportedIn{nullptr};
    std::atomic<bool> registered{false};
    QMetaObject::invokeMethod(context, [&] {
        auto* const watcher = new CMInitWatcher(context, QStringLiteral("Test"));
        watcher->newCMValueItem(kPath, [&](CMValueItem* item) {
            QObject::connect(item, &CMValueItem::changed,
                             [&] { reportedIn = QThread::currentThread(); });
        });
        registered = true;
    });
    EXPECT_TRUE(processEventsUntil([&] { return registered.load(); }));
    write(kPath, 2);
    EXPECT_TRUE(processEventsUntil([&] { return reportedIn.load() != nullptr; }));
    EXPECT_EQ(reportedIn, &thread);
    thread.quit();
    thread.wait();
}

}  // namespace
