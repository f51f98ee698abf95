#include "TestWorker.h"
#include "platform/cm/CurrentTree.h"
#include "platform/cm/Tree.h"
#include "sdk/cm/CMNode.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

using platform::Change;
using platform::CurrentTree;
using platform::NodeKind;
using platform::Subscription;
using platform::Tree;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const CMPath kPath(QStringLiteral("test/value"));
const CMPath kOther(QStringLiteral("test/other"));
const CMPath kUnknown(QStringLiteral("test/unknown"));

class TreeTest : public testing::Test {
protected:
    void provide(const CMPath& path, int initial) {
        tree_->provide({path, VeskValue::ofI32(initial), false, false});
    }

    void provideWithoutValue(const CMPath& path) { tree_->provide({path, {}, false, false}); }

    CMReply<QVariant> write(const CMPath& path, int value) {
        const auto reply = CMReply<QVariant>::create();
        tree_->write(path, VeskValue::ofI32(value), reply);
        return reply;
    }

    CMReply<QVariant> invoke(const CMPath& path) {
        const auto reply = CMReply<QVariant>::create();
        tree_->invoke(path, {}, reply);
        return reply;
    }

    int read(const CMPath& path) const { return tree_->read(path).value_or(VeskValue()).i32_(); }

    Subscription record(const CMPath& path) {
        return tree_->subscribe(
            path, [this](const Change& change) { recorded_.push_back(change.value.i32_()); });
    }

    const std::shared_ptr<Tree> tree_{std::make_shared<Tree>()};
    const CurrentTree current_{tree_};
    std::vector<int> recorded_;
};

TEST_F(TreeTest, ProvidedValueIsReadable) {
    provide(kPath, 7);
    EXPECT_EQ(tree_->read(kPath), VeskValue::ofI32(7));
}

TEST_F(TreeTest, PathProvidedWithoutInitialHasNoValueUntilItIsWritten) {
    provideWithoutValue(kPath);
    EXPECT_EQ(tree_->read(kPath), std::nullopt);
    write(kPath, 1);
    EXPECT_EQ(read(kPath), 1);
}

TEST_F(TreeTest, UnknownPathHasNoValue) {
    EXPECT_EQ(tree_->read(kUnknown), std::nullopt);
    EXPECT_EQ(tree_->info(kUnknown), std::nullopt);
}

TEST_F(TreeTest, ProvidingTakenPathIsRefused) {
    provide(kPath, 1);
    EXPECT_THROW(provide(kPath, 2), std::runtime_error);
    EXPECT_EQ(read(kPath), 1);
}

TEST_F(TreeTest, WriteOfDeviceValueIsDoneAndAnsweredWhenItReturns) {
    provide(kPath, 1);
    const auto reply = write(kPath, 2);
    EXPECT_TRUE(reply.isFinished());
    EXPECT_EQ(reply.value(), QVariant(true));
    EXPECT_EQ(read(kPath), 2);
}

TEST_F(TreeTest, WriteIsVisibleToOtherThreadWhenItReturns) {
    provide(kPath, 0);
    for (int i = 1; i <= 100; ++i) {
        std::thread([&] { write(kPath, i); }).join();
        EXPECT_EQ(read(kPath), i);
    }
}

TEST_F(TreeTest, WriteToUnknownPathIsAnsweredWithErrorAndLogged) {
    const LogCapture log("Platform");
    const auto reply = write(kUnknown, 1);
    ASSERT_TRUE(reply.isFinished());
    EXPECT_EQ(reply.error().name(), QStringLiteral("UnknownPath"));
    EXPECT_EQ(reply.error().text(), QStringLiteral("No such path: test/unknown"));
    EXPECT_THAT(log.lines(), ElementsAre("WARN No such path: test/unknown"));
    EXPECT_EQ(tree_->info(kUnknown), std::nullopt);
}

TEST_F(TreeTest, InvokeOfUnknownPathIsAnsweredWithErrorAndLogged) {
    const LogCapture log("Platform");
    EXPECT_EQ(invoke(kUnknown).error().text(), QStringLiteral("No such path: test/unknown"));
    EXPECT_THAT(log.lines(), ElementsAre("WARN No such path: test/unknown"));
}

TEST_F(TreeTest, WriteToUnknownPathWithoutReplyIsOnlyLogged) {
    const LogCapture log("Platform");
    tree_->write(kUnknown, VeskValue::ofI32(1), {});
    EXPECT_THAT(log.lines(), ElementsAre("WARN No such path: test/unknown"));
}

TEST_F(TreeTest, InvokeOfValueIsRefused) {
    provide(kPath, 1);
    const LogCapture log("Platform");
    EXPECT_EQ(invoke(kPath).error().name(), QStringLiteral("NotAnAction"));
    EXPECT_THAT(log.lines(), ElementsAre("WARN Not an action: test/value"));
}

TEST_F(TreeTest, WriteToActionIsRefused) {
    TestWorker worker;
    CMActivateNode::create(
        worker.nodes(), kPath, &worker, [](const CMSetDataRequest&) { FAIL(); },
        Qt::DirectConnection);
    const LogCapture log("Platform");
    EXPECT_EQ(write(kPath, 1).error().name(), QStringLiteral("NotAValue"));
    EXPECT_THAT(log.lines(), ElementsAre("WARN An action has no value: test/value"));
}

TEST_F(TreeTest, FollowerSeesEachChangeInOrder) {
    provide(kPath, 0);
    const Subscription subscription = record(kPath);
    write(kPath, 1);
    write(kPath, 2);
    write(kPath, 1);
    EXPECT_THAT(recorded_, ElementsAre(1, 2, 1));
}

TEST_F(TreeTest, EqualWriteChangesNothingAndNotifiesNoOne) {
    provide(kPath, 5);
    const Subscription subscription = record(kPath);
    EXPECT_EQ(write(kPath, 5).value(), QVariant(true));
    EXPECT_THAT(recorded_, IsEmpty());
}

TEST_F(TreeTest, ChangeInLastBitOfDoubleIsChange) {
    tree_->provide({kPath, VeskValue::ofDouble(1.0), false, false});
    tree_->write(kPath, VeskValue::ofDouble(std::nextafter(1.0, 2.0)), {});
    EXPECT_GT(tree_->read(kPath)->double_(), 1.0);
}

TEST_F(TreeTest, WriteOfSameNanIsEqualWrite) {
    tree_->provide({kPath, VeskValue::ofDouble(std::nan("")), false, false});
    const Subscription subscription = record(kPath);
    tree_->write(kPath, VeskValue::ofDouble(std::nan("")), {});
    EXPECT_THAT(recorded_, IsEmpty());
}

TEST_F(TreeTest, FollowerOfOnePathDoesNotSeeOthers) {
    provide(kPath, 0);
    provide(kOther, 0);
    const Subscription subscription = record(kPath);
    write(kOther, 1);
    EXPECT_THAT(recorded_, IsEmpty());
}

TEST_F(TreeTest, FollowerReceivesPresentValueAndOnlyLaterChanges) {
    provide(kPath, 3);
    std::optional<VeskValue> present;
    const Subscription subscription = tree_->subscribe(
        kPath, [this](const Change& change) { recorded_.push_back(change.value.i32_()); },
        &present);
    EXPECT_EQ(present, VeskValue::ofI32(3));
    EXPECT_THAT(recorded_, IsEmpty());
    write(kPath, 4);
    EXPECT_THAT(recorded_, ElementsAre(4));
}

TEST_F(TreeTest, FollowerOfAllSeesChangesOfAllPathsInOrder) {
    provide(kPath, 0);
    provide(kOther, 0);
    std::vector<QString> seen;
    const Subscription subscription = tree_->subscribeAll([&seen](const Change& change) {
        seen.push_back(change.path.toString() + QString::number(change.value.i32_()));
    });
    write(kPath, 1);
    write(kOther, 2);
    write(kPath, 3);
    EXPECT_THAT(seen, ElementsAre(QStringLiteral("test/value1"), QStringLiteral("test/other2"),
                                  QStringLiteral("test/value3")));
}

TEST_F(TreeTest, FollowingUnknownPathReportsItsFirstValue) {
    const Subscription subscription = record(kPath);
    provide(kPath, 9);
    EXPECT_THAT(recorded_, ElementsAre(9));
}

TEST_F(TreeTest, FollowingEmptyPathFollowsNothing) {
    provide(kPath, 0);
    const Subscription subscription = record(CMPath());
    write(kPath, 1);
    EXPECT_THAT(recorded_, IsEmpty());
}

TEST_F(TreeTest, EndedSubscriptionIsNotCalledAnyMore) {
    provide(kPath, 0);
    Subscription subscription = record(kPath);
    subscription.reset();
    write(kPath, 1);
    EXPECT_THAT(recorded_, IsEmpty());
}

TEST_F(TreeTest, SubscriptionCanOutliveTree) {
    Subscription subscription;
    {
        Tree tree;
        subscription = tree.subscribe(kPath, [](const Change&) { FAIL(); });
    }
    subscription.reset();
}

TEST_F(TreeTest, CallbackCanReadTree) {
    provide(kPath, 0);
    int seen = 0;
    const Subscription subscription =
        tree_->subscribe(kPath, [&](const Change&) { seen = read(kPath); });
    write(kPath, 6);
    EXPECT_EQ(seen, 6);
}

TEST_F(TreeTest, WriteInCallbackIsReportedAfterTheChangeThatCausedIt) {
    provide(kPath, 0);
    const Subscription writer = tree_->subscribe(kPath, [this](const Change& change) {
        if (change.value.i32_() == 1)
            write(kPath, 2);
    });
    const Subscription recorder = record(kPath);
    write(kPath, 1);
    EXPECT_THAT(recorded_, ElementsAre(1, 2));
}

TEST_F(TreeTest, CallbackCanEndItsOwnSubscription) {
    provide(kPath, 0);
    Subscription subscription = tree_->subscribe(kPath, [&](const Change& change) {
        recorded_.push_back(change.value.i32_());
        subscription.reset();
    });
    write(kPath, 1);
    write(kPath, 2);
    EXPECT_THAT(recorded_, ElementsAre(1));
}

TEST_F(TreeTest, EndOfSubscriptionWaitsForRunningCallback) {
    provide(kPath, 0);
    std::atomic<bool> entered{false};
    std::atomic<bool> release{false};
    std::atomic<bool> left{false};
    Subscription subscription = tree_->subscribe(kPath, [&](const Change&) {
        entered = true;
        while (!release)
            std::this_thread::yield();
        left = true;
    });
    std::thread writer([this] { write(kPath, 1); });
    while (!entered)
        std::this_thread::yield();
    std::thread releaser([&release] { release = true; });
    subscription.reset();
    EXPECT_TRUE(left);
    writer.join();
    releaser.join();
}

TEST_F(TreeTest, ListDescribesAllNodesInOrder) {
    tree_->provide({kPath, VeskValue::ofI32(1), true, false});
    TestWorker worker(QStringLiteral("Owner"));
    CMValueNode* const value = CMValueNode::create(worker.nodes(), CMPath(QStringLiteral("a")));
    const auto list = tree_->list();
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].path, value->path());
    EXPECT_EQ(list[0].worker, QStringLiteral("Owner"));
    EXPECT_FALSE(list[0].persistent);
    EXPECT_EQ(list[1].path, kPath);
    EXPECT_EQ(list[1].value, VeskValue::ofI32(1));
    EXPECT_EQ(list[1].worker, QString());
    EXPECT_TRUE(list[1].persistent);
}

TEST_F(TreeTest, WatchedPathsWithoutValueAreKnown) {
    provide(kPath, 1);
    provideWithoutValue(kOther);
    const Subscription first = record(kUnknown);
    const Subscription second = record(kPath);
    const Subscription third = record(kOther);
    EXPECT_THAT(tree_->watchedWithoutValue(), ElementsAre(kOther, kUnknown));
    write(kOther, 1);
    EXPECT_THAT(tree_->watchedWithoutValue(), ElementsAre(kUnknown));
}

TEST_F(TreeTest, PathThatIsNotFollowedAnyMoreIsNotMissed) {
    record(kUnknown).reset();
    EXPECT_THAT(tree_->watchedWithoutValue(), IsEmpty());
}

TEST_F(TreeTest, SecondCurrentTreeIsRefused) {
    EXPECT_THROW(CurrentTree second(std::make_shared<Tree>()), std::logic_error);
}

TEST(TreeDeathTest, RootWithoutPlatformEndsTheProcess) {
    EXPECT_DEATH(CMRoot(), "The configuration tree is used while no platform exists");
}

TEST_F(TreeTest, NothingIsWaitedForWithoutAStorage) {
    provide(kPath, 1);
    EXPECT_TRUE(tree_->waitUntilStored(std::chrono::milliseconds(0)));
}

TEST_F(TreeTest, AThreadWaitsForTheStorageOfWhatItHasSet) {
    provide(kPath, 1);
    int asked = 0;
    tree_->setStorage([&](std::chrono::milliseconds) { return ++asked > 0; });
    tree_->waitUntilStored(std::chrono::milliseconds(0));  // for what other tests have set
    asked = 0;
    std::thread([this] { write(kPath, 2); }).join();
    EXPECT_TRUE(tree_->waitUntilStored(std::chrono::milliseconds(0)));
    EXPECT_EQ(asked, 0) << "another thread has set it";
    write(kPath, 3);
    EXPECT_TRUE(tree_->waitUntilStored(std::chrono::milliseconds(0)));
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(tree_->waitUntilStored(std::chrono::milliseconds(0)));
    EXPECT_EQ(asked, 1) << "nothing new";
    write(kPath, 3);
    EXPECT_TRUE(tree_->waitUntilStored(std::chrono::milliseconds(0)));
    EXPECT_EQ(asked, 2) << "the same value may not be stored yet";
}

TEST_F(TreeTest, StorageIsAskedWhenEveryEarlierChangeHasBeenReported) {
    provide(kPath, 1);
    provide(kOther, 1);
    std::atomic<bool> isReported{false};
    std::atomic<bool> wasReportedBefore{false};
    tree_->setStorage([&](std::chrono::milliseconds) {
        wasReportedBefore = isReported.load();
        return true;
    });
    std::promise<void> entered;
    std::promise<void> go;
    const Subscription slow = tree_->subscribe(kPath, [&](const Change&) {
        entered.set_value();
        go.get_future().wait();
        isReported = true;
    });
    std::thread writer([this] { write(kPath, 2); });
    entered.get_future().wait();
    write(kOther, 2);
    EXPECT_FALSE(tree_->waitUntilReported(std::chrono::milliseconds(0)));
    go.set_value();
    EXPECT_TRUE(tree_->waitUntilStored(std::chrono::seconds(20)));
    EXPECT_TRUE(wasReportedBefore);
    writer.join();
}

}  // namespace
