#include "platform/Platform.h"
#include "platform/PlatformPaths.h"
#include "platform/cm/Tree.h"
#include "platform/services/PowerManager.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/records/VeskPowerManagerRecords.h"

#include <gmock/gmock.h>

#include <thread>
#include <vector>

using platform::Platform;
using platform::PowerManagerModules;
using platform::powerManagerModulesPath;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PowerManagerTest : public testing::Test {
protected:
    static CMReply<QVariant> registerModule(const QString& name) {
        VeskPowerManagerModuleRegister arguments{VeskHash()};
        arguments.setModuleName(name);
        return invoke(arguments);
    }

    static CMReply<QVariant> invoke(const VeskHash& arguments) {
        const auto reply = CMReply<QVariant>::create();
        CMRoot()->invoke(VeskPowerManagerModuleRegisterPath(), arguments, reply);
        EXPECT_TRUE(reply.waitForFinished(20'000));
        return reply;
    }

    static QStringList modules() {
        return PowerManagerModules(CMRoot()->getValue(powerManagerModulesPath())).names();
    }

    Platform platform{{}};
};

}  // namespace

TEST_F(PowerManagerTest, NobodyIsRegisteredAtFirst) {
    EXPECT_THAT(modules(), IsEmpty());
}

TEST_F(PowerManagerTest, ItsNodesAreServedByTheWorkerPowerManager) {
    EXPECT_EQ(platform.tree().info(VeskPowerManagerModuleRegisterPath())->worker,
              QStringLiteral("PowerManager"));
    EXPECT_EQ(platform.tree().info(powerManagerModulesPath())->worker,
              QStringLiteral("PowerManager"));
}

TEST_F(PowerManagerTest, RegistrationIsShownWhenItIsAnswered) {
    const auto reply = registerModule(VeskDiracName());
    EXPECT_FALSE(reply.error().isError());
    EXPECT_EQ(reply.value(), QVariant(true));
    EXPECT_THAT(modules(), ElementsAre(QStringLiteral("Dirac")));
}

TEST_F(PowerManagerTest, ModulesStandInTheOrderOfTheirRegistrationEachOnce) {
    registerModule(QStringLiteral("Dirac"));
    registerModule(QStringLiteral("Cast"));
    EXPECT_EQ(registerModule(QStringLiteral("Dirac")).value(), QVariant(true));
    EXPECT_THAT(modules(), ElementsAre(QStringLiteral("Dirac"), QStringLiteral("Cast")));
}

TEST_F(PowerManagerTest, EmptyNameIsAnError) {
    const auto reply = registerModule(QString());
    EXPECT_EQ(reply.error().name(), QStringLiteral("InvalidArgument"));
    EXPECT_EQ(reply.error().text(), QStringLiteral("A module without a name cannot be registered"));
    EXPECT_THAT(modules(), IsEmpty());
}

TEST_F(PowerManagerTest, RecordWithoutANameIsAnError) {
    EXPECT_TRUE(invoke(VeskHash()).error().isError());
    EXPECT_THAT(modules(), IsEmpty());
}

TEST_F(PowerManagerTest, ReplyMayBeEmpty) {
    VeskPowerManagerModuleRegister arguments{VeskHash()};
    arguments.setModuleName(QStringLiteral("First"));
    CMRoot()->invoke(VeskPowerManagerModuleRegisterPath(), arguments, {});
    registerModule(QStringLiteral("Second"));
    EXPECT_THAT(modules(), ElementsAre(QStringLiteral("First"), QStringLiteral("Second")));
}

TEST_F(PowerManagerTest, AnswersWhileTheCallersThreadIsBusyInManyThreads) {
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([i] { registerModule(QStringLiteral("Module%1").arg(i)); });
    }
    EXPECT_EQ(modules().size(), 8);
}

TEST_F(PowerManagerTest, ModulesDoNotWriteTheListThemselves) {
    registerModule(QStringLiteral("Dirac"));
    const auto reply = CMReply<QVariant>::create();
    CMRoot()->setValue(powerManagerModulesPath(), VeskValue(), reply);
    EXPECT_TRUE(reply.waitForFinished(20'000));
    EXPECT_TRUE(reply.error().isError());
    EXPECT_THAT(modules(), ElementsAre(QStringLiteral("Dirac")));
}
