#include "platform/Platform.h"
#include "platform/PlatformPaths.h"
#include "platform/cm/Tree.h"
#include "platform/services/PowerManager.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/records/VeskPowerManagerRecords.h"

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using platform::DeviceDescription;
using platform::Platform;
using platform::PowerManagerModules;
using platform::powerManagerModulesPath;
using platform::PowerManagerResources;
using platform::powerManagerResourcesPath;
using platform::ResourceBehaviour;
using platform::ResourceDescription;
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

using Action = VeskPowerModuleActions;

class PowerManagerResourceTest : public testing::Test {
protected:
    /// Starts the platform of a device with this microphone.
    void describe(const ResourceDescription& microphone) {
        DeviceDescription description;
        description.resources = {microphone};
        platform.reset();
        platform = std::make_unique<Platform>(description);
    }

    static CMReply<QVariant> send(const VeskHash& arguments) {
        const auto reply = CMReply<QVariant>::create();
        CMRoot()->invoke(VeskPowerManagerResourceRequestPath(), arguments, reply);
        return reply;
    }

    static VeskPowerManagerResourceRequest request(const QString& module, Action::Enum action) {
        VeskPowerManagerResourceRequest wish{VeskHash()};
        wish.setModuleName(module);
        wish.setResource(VeskPowerManagerResources::Microphone);
        wish.setAction(action);
        return wish;
    }

    static CMReply<QVariant> ask(const VeskHash& arguments) {
        const auto reply = send(arguments);
        EXPECT_TRUE(reply.waitForFinished(20'000));
        return reply;
    }

    static CMReply<QVariant> acquire(const QString& module = VeskDiracName()) {
        return ask(request(module, Action::Acquire));
    }

    static CMReply<QVariant> release(const QString& module = VeskDiracName()) {
        return ask(request(module, Action::Release));
    }

    /// Who has the microphone; empty: nobody.
    static QString holder() {
        return PowerManagerResources(CMRoot()->getValue(powerManagerResourcesPath()))
            .holders()
            .value(QStringLiteral("microphone"))
            .toString();
    }

    const QString other{QStringLiteral("Assistant")};
    std::unique_ptr<Platform> platform{std::make_unique<Platform>(DeviceDescription())};
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

TEST_F(PowerManagerResourceTest, AFreeResourceIsAcquired) {
    EXPECT_EQ(holder(), QString());
    EXPECT_EQ(acquire().value(), QVariant(true));
    EXPECT_EQ(holder(), QStringLiteral("Dirac"));
}

TEST_F(PowerManagerResourceTest, AReleasedResourceIsFree) {
    acquire();
    EXPECT_EQ(release().value(), QVariant(true));
    EXPECT_EQ(holder(), QString());
    EXPECT_FALSE(acquire(other).error().isError());
    EXPECT_EQ(holder(), other);
}

TEST_F(PowerManagerResourceTest, TheHolderMayAcquireAgain) {
    acquire();
    EXPECT_FALSE(acquire().error().isError());
    release();
    EXPECT_EQ(holder(), QString());
}

TEST_F(PowerManagerResourceTest, AHeldResourceIsBusyForOthers) {
    acquire(other);
    const CMError error = acquire().error();
    EXPECT_EQ(error.name(), QStringLiteral("ResourceBusy"));
    EXPECT_EQ(error.text(), QStringLiteral("The microphone is held by Assistant"));
    EXPECT_EQ(holder(), other);
}

TEST_F(PowerManagerResourceTest, OnlyTheHolderReleases) {
    acquire(other);
    EXPECT_EQ(release().error().name(), QStringLiteral("NotHolder"));
    EXPECT_EQ(holder(), other);
    release(other);
    EXPECT_EQ(release(other).error().name(), QStringLiteral("NotHolder"));
}

TEST_F(PowerManagerResourceTest, ADescribedHolderHasTheResourceFromTheBeginning) {
    describe({QStringLiteral("microphone"), ResourceBehaviour::Granted, other, {}, {}});
    EXPECT_EQ(holder(), other);
    EXPECT_EQ(acquire().error().name(), QStringLiteral("ResourceBusy"));
    release(other);
    EXPECT_FALSE(acquire().error().isError());
}

TEST_F(PowerManagerResourceTest, ARefusedResourceGivesTheDescribedError) {
    describe({QStringLiteral("microphone"),
              ResourceBehaviour::Refused,
              {},
              QStringLiteral("Broken"),
              QStringLiteral("The microphone is out of order")});
    const CMError error = acquire().error();
    EXPECT_EQ(error.name(), QStringLiteral("Broken"));
    EXPECT_EQ(error.text(), QStringLiteral("The microphone is out of order"));
    EXPECT_EQ(holder(), QString());
    EXPECT_EQ(release().error().name(), QStringLiteral("NotHolder"));
}

TEST_F(PowerManagerResourceTest, ASilentResourceIsNeverAnsweredAndHoldsNobodyUp) {
    describe({QStringLiteral("microphone"), ResourceBehaviour::Silent, {}, {}, {}});
    const auto acquiring = send(request(VeskDiracName(), Action::Acquire));
    const auto releasing = send(request(VeskDiracName(), Action::Release));
    EXPECT_FALSE(acquiring.waitForFinished(50));
    EXPECT_FALSE(releasing.isFinished());
    VeskPowerManagerModuleRegister registration{VeskHash()};
    registration.setModuleName(other);
    const auto reply = CMReply<QVariant>::create();
    CMRoot()->invoke(VeskPowerManagerModuleRegisterPath(), registration, reply);
    EXPECT_TRUE(reply.waitForFinished(20'000)) << "the power manager itself answers";
    platform.reset();
    EXPECT_TRUE(acquiring.isFinished());
    EXPECT_EQ(acquiring.error().name(), QStringLiteral("Unanswered"));
}

TEST_F(PowerManagerResourceTest, ASilentResourceKeepsABoundedNumberOfRequests) {
    describe({QStringLiteral("microphone"), ResourceBehaviour::Silent, {}, {}, {}});
    const auto first = send(request(VeskDiracName(), Action::Acquire));
    for (int i = 0; i < 63; ++i)
        send(request(VeskDiracName(), Action::Acquire));
    const auto last = send(request(VeskDiracName(), Action::Acquire));
    EXPECT_TRUE(first.waitForFinished(20'000)) << "the oldest goes";
    EXPECT_FALSE(last.isFinished());
}

TEST_F(PowerManagerResourceTest, WhatIsNoRequestIsAnError) {
    VeskPowerManagerResourceRequest unknown = request(VeskDiracName(), Action::Acquire);
    unknown.insert(unknown.Resource(), 99);
    EXPECT_EQ(ask(unknown).error().text(), QStringLiteral("There is no resource 99"));
    EXPECT_EQ(ask(request(QString(), Action::Acquire)).error().name(),
              QStringLiteral("InvalidArgument"));
    VeskPowerManagerResourceRequest odd = request(VeskDiracName(), Action::Acquire);
    odd.insert(odd.Action(), 17);
    EXPECT_EQ(ask(odd).error().text(), QStringLiteral("There is no action 17"));
    EXPECT_EQ(ask(VeskHash()).error().name(), QStringLiteral("InvalidArgument"));
    VeskPowerManagerResourceRequest inactive{VeskHash()};
    inactive.setModuleName(VeskDiracName());
    inactive.setResource(VeskPowerManagerResources::Microphone);
    EXPECT_EQ(ask(inactive).error().name(), QStringLiteral("InvalidArgument"));
    EXPECT_EQ(holder(), QString());
}

TEST_F(PowerManagerResourceTest, OneOfManyThreadsGetsIt) {
    std::atomic<int> granted{0};
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&granted, i] {
                if (!acquire(QStringLiteral("Module%1").arg(i)).error().isError())
                    ++granted;
            });
    }
    EXPECT_EQ(granted, 1);
}

TEST_F(PowerManagerResourceTest, HoldersCannotBeWritten) {
    const auto reply = CMReply<QVariant>::create();
    CMRoot()->setValue(powerManagerResourcesPath(), VeskValue(), reply);
    EXPECT_TRUE(reply.waitForFinished(20'000));
    EXPECT_EQ(reply.error().name(), QStringLiteral("ReadOnly"));
}
