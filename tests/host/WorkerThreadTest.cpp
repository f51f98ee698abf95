#include "host/TestDevice.h"
#include "host/WorkerThread.h"
#include "platform/Platform.h"
#include "platform/cm/Tree.h"
#include "support/ScratchDirectory.h"
#include "support/WorkingDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

namespace host {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

class WorkerThreadTest : public testing::Test {
protected:
    void expectFailure(const std::string& plugin, const std::string& reason) {
        EXPECT_THAT([&] { WorkerThread{plugin}; },
                    ThrowsMessage<std::runtime_error>(AllOf(HasSubstr(plugin), HasSubstr(reason))));
    }
    std::string stringAt(const char* path) {
        const auto value = platform_.tree().read(CMPath(path));
        return value ? value->string().toStdString() : "(no value)";
    }

    const ScratchDirectory scratch_;
    const WorkingDirectory directory_{scratch_.path()};
    platform::Platform platform_{deviceInMemory()};
};

TEST_F(WorkerThreadTest, TheWorkerIsThereWhenTheConstructorReturns) {
    const WorkerThread thread(VESK_TEST_PLUGIN);
    EXPECT_TRUE(platform_.tree().info(CMPath("test/choice")));
}

TEST_F(WorkerThreadTest, TheWorkerIsMadeInItsOwnThread) {
    const WorkerThread thread(VESK_TEST_PLUGIN);
    EXPECT_EQ(stringAt("test/thread"), "libvesk_test_plugin");
}

TEST_F(WorkerThreadTest, TheWorkerRunsInItsThread) {
    const WorkerThread thread(VESK_TEST_PLUGIN);
    const auto answer = CMReply<QVariant>::create();
    platform_.tree().write(CMPath("test/choice"), VeskValue::ofI32(3), answer);
    ASSERT_TRUE(answer.waitForFinished(20000));
    EXPECT_EQ(platform_.tree().read(CMPath("test/choice"))->i32_(), 3);
}

TEST_F(WorkerThreadTest, TheWorkerIsDestroyedInItsThread) {
    { const WorkerThread thread(VESK_TEST_PLUGIN); }
    EXPECT_FALSE(platform_.tree().info(CMPath("test/choice")));
    std::string name;
    std::ifstream("worker-ended") >> name;
    EXPECT_EQ(name, "libvesk_test_plugin");
}

TEST_F(WorkerThreadTest, AWorkerCanBeStartedAgain) {
    for (int round = 0; round < 3; ++round)
        const WorkerThread thread(VESK_TEST_PLUGIN);
    EXPECT_FALSE(platform_.tree().info(CMPath("test/choice")));
}

TEST_F(WorkerThreadTest, AMissingPluginIsNamed) {
    expectFailure("/no/such/plugin.so", "cannot be loaded as a worker plug-in");
}

TEST_F(WorkerThreadTest, AFileThatIsNoLibraryIsRefused) {
    std::ofstream("text.so") << "not a library";
    expectFailure(fs::absolute("text.so").string(), "cannot be loaded as a worker plug-in");
}

TEST_F(WorkerThreadTest, ALibraryWithoutEntryPointIsRefused) {
    expectFailure(VESK_TEST_PLUGIN_WITHOUT_ENTRY_POINT, "worker_create");
}

TEST_F(WorkerThreadTest, APluginThatMakesNoWorkerIsRefused) {
    expectFailure(VESK_TEST_PLUGIN_WITHOUT_WORKER, "worker_create has returned no worker");
}

TEST_F(WorkerThreadTest, AnExceptionOfThePluginComesBack) {
    expectFailure(VESK_TEST_PLUGIN_FAILING, "no such weather");
}

}  // namespace
}  // namespace host
