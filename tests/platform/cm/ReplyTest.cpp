#include "sdk/cm/CMReply.h"

#include <gmock/gmock.h>

#include <thread>

namespace {

const CMError kDropped(QStringLiteral("Unanswered"), QStringLiteral("Nobody answered"));

using Reply = CMReply<QVariant>;

TEST(ReplyTest, EmptyReplyIsFinishedAndIgnoresAnswers) {
    const Reply reply;
    EXPECT_TRUE(reply.isEmpty());
    EXPECT_TRUE(reply.isFinished());
    EXPECT_TRUE(reply.waitForFinished());
    reply.setValue(1);
    reply.setError(CMError(QStringLiteral("text")));
    EXPECT_FALSE(reply.value().isValid());
    EXPECT_FALSE(reply.error().isError());
}

TEST(ReplyTest, CreatedReplyWaitsForAnswer) {
    const Reply reply = Reply::create();
    EXPECT_FALSE(reply.isEmpty());
    EXPECT_FALSE(reply.isFinished());
    EXPECT_FALSE(reply.waitForFinished(1));
    reply.setValue(true);
    EXPECT_TRUE(reply.isFinished());
    EXPECT_TRUE(reply.waitForFinished());
    EXPECT_EQ(reply.value(), QVariant(true));
    EXPECT_FALSE(reply.error().isError());
}

TEST(ReplyTest, InvalidVariantIsAnAnswer) {
    const Reply reply = Reply::create();
    reply.setValue(QVariant());
    EXPECT_TRUE(reply.isFinished());
    EXPECT_FALSE(reply.value().isValid());
    EXPECT_FALSE(reply.error().isError());
}

TEST(ReplyTest, ErrorFinishesReply) {
    const Reply reply = Reply::create();
    reply.setError(CMError(QStringLiteral("Name"), QStringLiteral("text")));
    EXPECT_TRUE(reply.isFinished());
    EXPECT_FALSE(reply.value().isValid());
    EXPECT_EQ(reply.error().name(), QStringLiteral("Name"));
    EXPECT_EQ(reply.error().text(), QStringLiteral("text"));
}

TEST(ReplyTest, FirstAnswerCounts) {
    const Reply value = Reply::create();
    value.setValue(1);
    value.setValue(2);
    value.setError(CMError(QStringLiteral("late")));
    EXPECT_EQ(value.value(), QVariant(1));
    EXPECT_FALSE(value.error().isError());

    const Reply error = Reply::create();
    error.setError(CMError(QStringLiteral("first")));
    error.setValue(1);
    EXPECT_EQ(error.error().text(), QStringLiteral("first"));
    EXPECT_FALSE(error.value().isValid());
}

TEST(ReplyTest, CopiesShareTheAnswer) {
    const Reply reply = Reply::create();
    const Reply copy = reply;  // NOLINT(performance-unnecessary-copy-initialization)
    reply.setValue(5);
    EXPECT_EQ(copy.value(), QVariant(5));
}

TEST(ReplyTest, AnswerOfOtherThreadEndsWait) {
    const Reply reply = Reply::create();
    std::thread answering([reply] { reply.setValue(3); });
    EXPECT_TRUE(reply.waitForFinished());
    EXPECT_EQ(reply.value(), QVariant(3));
    answering.join();
}

TEST(ReplyTest, VeryLongTimeoutDoesNotOverflow) {
    const Reply reply = Reply::create();
    std::thread answering([reply] { reply.setValue(3); });
    EXPECT_TRUE(reply.waitForFinished(std::numeric_limits<unsigned long>::max() - 1));
    answering.join();
}

TEST(ReplyTest, TypedReplyCarriesItsType) {
    const auto reply = CMReply<QString>::create();
    reply.setValue(QStringLiteral("text"));
    EXPECT_EQ(reply.value(), QStringLiteral("text"));
}

TEST(ReplyTest, PromisedReplyFailsWhenItsLastCopyIsDropped) {
    const Reply reply = Reply::create();
    {
        const Reply promised = reply.promised(kDropped);
        {
            const Reply copy = promised;  // NOLINT(performance-unnecessary-copy-initialization)
        }
        EXPECT_FALSE(reply.isFinished());
    }
    EXPECT_TRUE(reply.isFinished());
    EXPECT_EQ(reply.error().name(), QStringLiteral("Unanswered"));
}

TEST(ReplyTest, AnsweredPromiseKeepsItsAnswer) {
    const Reply reply = Reply::create();
    reply.promised(kDropped).setValue(1);
    EXPECT_EQ(reply.value(), QVariant(1));
    EXPECT_FALSE(reply.error().isError());
}

TEST(ReplyTest, PromiseOfEmptyReplyIsEmpty) {
    EXPECT_TRUE(Reply().promised(kDropped).isEmpty());
}

}  // namespace
