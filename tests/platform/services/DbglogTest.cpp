#include "sdk/services/dbglog.h"

#include <gtest/gtest.h>

TEST(DbglogTest, ScopedFunctionIsTheSignatureItself) {
    EXPECT_EQ(dbglog_scopedFunction("void Dirac::startServer()", "Dirac"),
              "void Dirac::startServer()");
}
