#include "modules/dirac/ScopedTrace.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <stdexcept>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Traced {
    void plain() { DIRAC_SCOPED_TRACE(); }

    int described(int index) {
        DIRAC_SCOPED_TRACE("Index " << index << " Has stimulus: " << true);
        return index;
    }

    void left() {
        DIRAC_SCOPED_TRACE();
        scopedTrace.leaveWith("RETURN: OK");
    }

    void inner() {
        DIRAC_SCOPED_TRACE();
        plain();
    }

    void thrower() {
        DIRAC_SCOPED_TRACE();
        throw std::runtime_error("for the test");
    }
};

}  // namespace

class ScopedTraceTest : public testing::Test {
protected:
    LogCapture log{"Dirac"};
    Traced traced;
};

TEST_F(ScopedTraceTest, LogsTheSignatureAtEntryAndAtTheEnd) {
    traced.plain();
    EXPECT_THAT(log.lines(), ElementsAre("TRACE Enter void {anonymous}::Traced::plain()",
                                         "TRACE Leave void {anonymous}::Traced::plain()"));
}

TEST_F(ScopedTraceTest, AppendsTheTextToTheEntryOnly) {
    traced.described(7);
    EXPECT_THAT(log.lines(), ElementsAre("TRACE Enter int {anonymous}::Traced::described(int): "
                                         "Index 7 Has stimulus: 1",
                                         "TRACE Leave int {anonymous}::Traced::described(int)"));
}

TEST_F(ScopedTraceTest, LeaveTextIsAppendedToTheEnd) {
    traced.left();
    EXPECT_THAT(log.lines(),
                ElementsAre("TRACE Enter void {anonymous}::Traced::left()",
                            "TRACE Leave void {anonymous}::Traced::left(): RETURN: OK"));
}

TEST_F(ScopedTraceTest, ScopesNest) {
    traced.inner();
    EXPECT_THAT(log.lines(), ElementsAre("TRACE Enter void {anonymous}::Traced::inner()",
                                         "TRACE Enter void {anonymous}::Traced::plain()",
                                         "TRACE Leave void {anonymous}::Traced::plain()",
                                         "TRACE Leave void {anonymous}::Traced::inner()"));
}

TEST_F(ScopedTraceTest, AnExceptionLeavesTheScope) {
    EXPECT_THROW(traced.thrower(), std::runtime_error);
    EXPECT_EQ(log.lines().back(), "TRACE Leave void {anonymous}::Traced::thrower()");
}

TEST_F(ScopedTraceTest, SaysNothingAndFormsNoTextWhenTraceIsOff) {
    auto dirac = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("Dirac"));
    dirac.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    int formed = 0;
    { DIRAC_SCOPED_TRACE(++formed); }
    EXPECT_EQ(formed, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}
