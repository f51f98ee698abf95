#include "TestWorker.h"
#include "platform/cm/CurrentTree.h"
#include "sdk/cm/CMInitWatcher.h"
#include "sdk/cm/CMNode.h"
#include "support/WaitFor.h"

#include <QThread>
#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

using platform::CurrentTree;
using platform::NodeKind;
using platform::Tree;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const CMPath kPath(QStringLiteral("test/node"));
const CMPath kRows(QStringLiteral("test/rows"));

using Reply = CMReply<QVariant>;

class NodesTest : public testing::Test {
protected:
    Reply write(const CMPath& path, int value) {
        const Reply reply = Reply::create();
        CMRoot()->setValue(path, VeskValue::ofI32(value), reply);
        return reply;
    }

    Reply invoke(const CMPath& path, const QVariant& arguments = {}) {
        const Reply reply = Reply::create();
        CMRoot()->invoke(path, arguments, reply);
        return reply;
    }

    VeskValue read(const CMPath& path) const { return VeskValue(CMRoot()->getValue(path)); }

    CMValueNode* createValue(QMutex* mutex = nullptr) {
        return CMValueNode::create(worker_->nodes(), kPath, mutex);
    }

    void createAction(QObject* receiver, Qt::ConnectionType type) {
        CMActivateNode::create(
            worker_->nodes(), kPath, receiver,
            [this](const CMSetDataRequest& request) {
                activations_.push_back(request);
                actionThread_ = QThread::currentThread();
                request.reply().setValue(QStringLiteral("done"));
            },
            type);
    }

    const std::shared_ptr<Tree> tree_{std::make_shared<Tree>()};
    const CurrentTree current_{tree_};
    std::unique_ptr<TestWorker> worker_{std::make_unique<TestWorker>()};
    std::vector<CMSetDataRequest> activations_;
    std::atomic<QThread*> actionThread_{nullptr};
};

TEST_F(NodesTest, WorkerKnowsItsConfigurationAndName) {
    const CMNodesWorker worker({{QStringLiteral("key"), 1}}, QStringLiteral("Name"));
    EXPECT_EQ(worker.name(), QStringLiteral("Name"));
    EXPECT_EQ(worker.config().value(QStringLiteral("key")), QVariant(1));
}

TEST_F(NodesTest, ValueOfNewNodeIsKnownAndEmpty) {
    const CMValueNode* const node = createValue();
    EXPECT_EQ(node->path(), kPath);
    EXPECT_TRUE(CMRoot()->getValue(kPath).isValid());
    EXPECT_TRUE(read(kPath).isEmpty());
}

TEST_F(NodesTest, PathWithoutValueReadsAsInvalid) {
    CMListRowsNode::create(worker_->nodes(), kRows);
    EXPECT_FALSE(CMRoot()->getValue(kPath).isValid());
    EXPECT_FALSE(CMRoot()->getValue(kRows).isValid());
}

TEST_F(NodesTest, WorkerSetsItsOwnNodeAtOnce) {
    createValue()->setValue(VeskValue::ofI32(3));
    EXPECT_EQ(read(kPath), VeskValue::ofI32(3));
}

TEST_F(NodesTest, ClientsWriteIsAppliedByTheEventLoopAlsoInTheWorkersOwnThread) {
    createValue();
    const Reply reply = write(kPath, 4);
    EXPECT_FALSE(reply.isFinished());
    EXPECT_TRUE(read(kPath).isEmpty());
    processAllEvents();
    EXPECT_EQ(reply.value(), QVariant(true));
    EXPECT_EQ(read(kPath), VeskValue::ofI32(4));
}

TEST_F(NodesTest, WritesArriveInTheirOrder) {
    std::vector<int> seen;
    createValue()->doSetValidate([&seen](const CMSetDataRequest& request) {
        seen.push_back(request.value().i32_());
        request.reply().setValue(true);
    });
    for (int i = 0; i < 5; ++i)
        write(kPath, i);
    processAllEvents();
    EXPECT_THAT(seen, ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(NodesTest, ValidatorDecides) {
    CMValueNode* const node = createValue();
    node->doSetValidate([node](const CMSetDataRequest& request) {
        if (request.value().i32_() < 0)
            return request.reply().setError(CMError(QStringLiteral("Negative")));
        node->setValue(request.value());
        request.reply().setValue(true);
    });
    const Reply accepted = write(kPath, 1);
    const Reply refused = write(kPath, -1);
    processAllEvents();
    EXPECT_EQ(accepted.value(), QVariant(true));
    EXPECT_EQ(refused.error().text(), QStringLiteral("Negative"));
    EXPECT_EQ(read(kPath), VeskValue::ofI32(1));
}

TEST_F(NodesTest, RequestThatNobodyAnswersFails) {
    createValue()->doSetValidate([](const CMSetDataRequest&) {});
    const Reply reply = write(kPath, 1);
    processAllEvents();
    EXPECT_EQ(reply.error().name(), QStringLiteral("Unanswered"));
    EXPECT_EQ(reply.error().text(), QStringLiteral("Nobody answered the request to test/node"));
}

TEST_F(NodesTest, RequestCanBeAnsweredLater) {
    Reply kept;
    createValue()->doSetValidate(
        [&kept](const CMSetDataRequest& request) { kept = request.reply(); });
    const Reply reply = write(kPath, 1);
    processAllEvents();
    EXPECT_FALSE(reply.isFinished());
    kept.setValue(QStringLiteral("late"));
    EXPECT_EQ(reply.value(), QVariant(QStringLiteral("late")));
}

TEST_F(NodesTest, WriteOfOtherThreadRunsInTheWorkersThread) {
    std::atomic<QThread*> validatedIn{nullptr};
    createValue()->doSetValidate([&](const CMSetDataRequest& request) {
        validatedIn = QThread::currentThread();
        request.reply().setValue(true);
    });
    std::atomic<bool> answered{false};
    std::thread client([&] { answered = write(kPath, 1).waitForFinished(); });
    EXPECT_TRUE(processEventsUntil([&] { return answered.load(); }));
    client.join();
    EXPECT_EQ(validatedIn, QThread::currentThread());
}

TEST_F(NodesTest, MutexIsHeldWhileTheValueChanges) {
    QMutex mutex;
    CMValueNode* const node = createValue(&mutex);
    bool held = false;
    const auto subscription = tree_->subscribe(kPath, [&](const platform::Change&) {
        std::thread([&] { held = !mutex.tryLock(); }).join();
    });
    node->setValue(VeskValue::ofI32(1));
    EXPECT_TRUE(held);
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
}

TEST_F(NodesTest, TitleAndChoicesDescribeTheNode) {
    CMValueNode* const node = createValue();
    node->setTitle(TrString(QStringLiteral("Context"), QStringLiteral("Filter: %1"),
                            {TrArg(QStringLiteral("Flat"))}));
    VeskEdit edit;
    edit.setType(1);
    edit.setEnumPath(kRows);
    node->setEdit(edit);
    const auto info = tree_->info(kPath);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->kind, NodeKind::Value);
    EXPECT_EQ(info->title, QStringLiteral("Filter: Flat"));
    EXPECT_EQ(info->choices, kRows);
    EXPECT_EQ(info->worker, QStringLiteral("Test"));
}

TEST_F(NodesTest, RowsAreAppendedAndCleared) {
    CMListRowsNode* const node = CMListRowsNode::create(worker_->nodes(), kRows);
    VeskRoles row;
    row.setType(101);
    row.setValue(VeskValue::ofI32(-1));
    node->rowsAppend(row);
    row.setValue(VeskValue::ofI32(2));
    node->rowsAppend(row);
    const QVariantList rows = tree_->info(kRows)->rows;
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(VeskRoles(rows[0]).value().i32_(), -1);
    EXPECT_EQ(VeskRoles(rows[1]).value().i32_(), 2);
    EXPECT_EQ(VeskRoles(rows[1]).type(), 101);
    node->rowsClear();
    EXPECT_THAT(tree_->info(kRows)->rows, IsEmpty());
}

TEST_F(NodesTest, FollowersSeeRows) {
    CMListRowsNode* const node = CMListRowsNode::create(worker_->nodes(), kRows);
    std::vector<int> sizes;
    const auto subscription = tree_->subscribeAll([&sizes](const platform::Change& change) {
        EXPECT_EQ(change.kind, NodeKind::Rows);
        sizes.push_back(change.rows.size());
    });
    node->rowsAppend({});
    node->rowsAppend({});
    node->rowsClear();
    node->rowsClear();
    EXPECT_THAT(sizes, ElementsAre(1, 2, 0));
}

TEST_F(NodesTest, RowsCannotBeSetByClients) {
    CMListRowsNode::create(worker_->nodes(), kRows);
    const Reply reply = write(kRows, 1);
    processAllEvents();
    EXPECT_EQ(reply.error().name(), QStringLiteral("NotAValue"));
    EXPECT_EQ(reply.error().text(), QStringLiteral("Rows cannot be set: test/rows"));
}

TEST_F(NodesTest, DirectActionRunsWhenTheWorkerHandlesTheRequest) {
    createAction(worker_.get(), Qt::DirectConnection);
    const Reply reply = invoke(kPath);
    EXPECT_THAT(activations_, IsEmpty());
    QCoreApplication::sendPostedEvents(worker_.get());
    ASSERT_EQ(activations_.size(), 1U);
    EXPECT_EQ(reply.value(), QVariant(QStringLiteral("done")));
}

TEST_F(NodesTest, ActionReceivesTheArgumentsRecord) {
    createAction(worker_.get(), Qt::QueuedConnection);
    VeskHash arguments;
    arguments.insert(QStringLiteral("name"), QStringLiteral("Dirac"));
    invoke(kPath, arguments);
    processAllEvents();
    ASSERT_EQ(activations_.size(), 1U);
    EXPECT_EQ(activations_[0].path(), kPath);
    EXPECT_EQ(activations_[0].value().value(QStringLiteral("name")),
              QVariant(QStringLiteral("Dirac")));
}

TEST_F(NodesTest, QueuedActionRunsInTheThreadOfItsReceiver) {
    QThread thread;
    QObject receiver;
    receiver.moveToThread(&thread);
    createAction(&receiver, Qt::QueuedConnection);
    thread.start();
    const Reply reply = invoke(kPath);
    EXPECT_TRUE(processEventsUntil([&] { return reply.isFinished(); }));
    EXPECT_EQ(actionThread_, &thread);
    thread.quit();
    thread.wait();
}

TEST_F(NodesTest, ActionWhoseReceiverIsGoneFails) {
    auto receiver = std::make_unique<QObject>();
    createAction(receiver.get(), Qt::DirectConnection);
    receiver.reset();
    const Reply reply = invoke(kPath);
    processAllEvents();
    EXPECT_EQ(reply.error().name(), QStringLiteral("Unanswered"));
    EXPECT_THAT(activations_, IsEmpty());
}

TEST_F(NodesTest, QueuedActionWhoseReceiverGoesMeanwhileFails) {
    auto receiver = std::make_unique<QObject>();
    createAction(receiver.get(), Qt::QueuedConnection);
    const Reply reply = invoke(kPath);
    QCoreApplication::sendPostedEvents(worker_.get());
    EXPECT_FALSE(reply.isFinished());
    receiver.reset();
    EXPECT_EQ(reply.error().name(), QStringLiteral("Unanswered"));
}

TEST_F(NodesTest, NodesLeaveTheTreeWithTheirWorker) {
    createValue();
    CMListRowsNode::create(worker_->nodes(), kRows);
    worker_.reset();
    EXPECT_THAT(tree_->list(), IsEmpty());
    EXPECT_EQ(write(kPath, 1).error().name(), QStringLiteral("UnknownPath"));
}

TEST_F(NodesTest, WaitingRequestsFailWhenTheWorkerIsDestroyed) {
    createValue();
    const Reply first = write(kPath, 1);
    const Reply second = write(kPath, 2);
    worker_.reset();
    EXPECT_EQ(first.error().name(), QStringLiteral("Unanswered"));
    EXPECT_EQ(second.error().name(), QStringLiteral("Unanswered"));
}

TEST_F(NodesTest, TakenPathIsRefusedAndFreeAgainAfterwards) {
    createValue();
    {
        TestWorker second;
        EXPECT_THROW(CMValueNode::create(second.nodes(), kPath), std::runtime_error);
    }
    EXPECT_TRUE(tree_->info(kPath));
    worker_.reset();
    TestWorker third;
    CMValueNode::create(third.nodes(), kPath)->setValue(VeskValue::ofI32(1));
    EXPECT_EQ(read(kPath), VeskValue::ofI32(1));
}

TEST_F(NodesTest, WorkerThatServesNothingRefusesRequests) {
    struct Worker : CMAbstractWorker {
        using CMAbstractWorker::setDataRequest;
    };
    Worker worker;
    const Reply reply = Reply::create();
    worker.setDataRequest({kPath, {}, reply});
    EXPECT_EQ(reply.error().name(), QStringLiteral("NotServed"));
}

}  // namespace
