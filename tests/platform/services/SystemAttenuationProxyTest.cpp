#include "platform/Platform.h"
#include "platform/PlatformPaths.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/services/SystemAttenuationProxy.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

#include <QThread>
#include <gmock/gmock.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <thread>
#include <vector>

using platform::attenuationPath;
using platform::DeviceDescription;
using platform::Platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr double kQuietest = -80;

DeviceDescription describedDevice() {
    DeviceDescription description;
    description.volumeMap = {kQuietest, -40, -20, 0};
    return description;
}

class SystemAttenuationProxyTest : public testing::Test {
protected:
    SystemAttenuationProxyTest() {
        QObject::connect(&proxy, &SystemAttenuationProxy::attenuationChanged,
                         [this](double attenuation) { reported.push_back(attenuation); });
    }

    static void setInTree(double attenuation) {
        CMRoot()->setValue(attenuationPath(), VeskValue::ofDouble(attenuation), {});
    }

    static double inTree() { return VeskValue(CMRoot()->getValue(attenuationPath())).double_(); }

    const Platform platform{describedDevice()};
    SystemAttenuationProxy proxy{QStringLiteral("Test"), 250, true};
    std::vector<double> reported;
};

}  // namespace

TEST_F(SystemAttenuationProxyTest, EnableReportsThePresentAttenuationFromTheEventLoop) {
    setInTree(-12);
    proxy.enable();
    EXPECT_THAT(reported, IsEmpty());
    processAllEvents();
    EXPECT_THAT(reported, ElementsAre(-12));
}

TEST_F(SystemAttenuationProxyTest, EnableReportsNothingWhenNotAsked) {
    SystemAttenuationProxy silent(QStringLiteral("Silent"), 250, false);
    std::vector<double> heard;
    QObject::connect(&silent, &SystemAttenuationProxy::attenuationChanged,
                     [&](double attenuation) { heard.push_back(attenuation); });
    silent.enable();
    processAllEvents();
    EXPECT_THAT(heard, IsEmpty());
    setInTree(-3);
    processAllEvents();
    EXPECT_THAT(heard, ElementsAre(-3));
}

TEST_F(SystemAttenuationProxyTest, ReportsNothingBeforeEnable) {
    setInTree(-12);
    processAllEvents();
    EXPECT_THAT(reported, IsEmpty());
}

TEST_F(SystemAttenuationProxyTest, ReportsEachChange) {
    proxy.enable();
    processAllEvents();
    setInTree(-1);
    processAllEvents();
    setInTree(-2);
    processAllEvents();
    EXPECT_THAT(reported, ElementsAre(0, -1, -2));
}

TEST_F(SystemAttenuationProxyTest, EqualAttenuationOfAnotherClientIsNoChange) {
    proxy.enable();
    processAllEvents();
    setInTree(0);
    processAllEvents();
    EXPECT_THAT(reported, ElementsAre(0));
}

TEST_F(SystemAttenuationProxyTest, OwnWishThatChangesNothingIsAnsweredWithWhatIsApplied) {
    setInTree(-7);
    proxy.enable();
    processAllEvents();
    for (const double wish : {-7.0, std::nan("")}) {
        reported.clear();
        proxy.setAttenuation(wish);
        EXPECT_THAT(reported, IsEmpty());
        processAllEvents();
        EXPECT_THAT(reported, ElementsAre(-7)) << "wish " << wish;
    }
}

TEST_F(SystemAttenuationProxyTest, OwnWishBeyondTheVolumeMapIsAnsweredWithWhatIsApplied) {
    proxy.enable();
    processAllEvents();
    reported.clear();
    proxy.setAttenuation(50);
    processAllEvents();
    EXPECT_THAT(reported, ElementsAre(0));
    proxy.setAttenuation(-200);
    processAllEvents();
    EXPECT_THAT(reported, ElementsAre(0, kQuietest));
}

TEST_F(SystemAttenuationProxyTest, WishesInARowEndWithWhatIsApplied) {
    proxy.enable();
    processAllEvents();
    setInTree(-5);
    proxy.setAttenuation(50);
    processAllEvents();
    EXPECT_EQ(reported.back(), 0);
    EXPECT_THAT(reported, ElementsAre(0, 0));
}

TEST_F(SystemAttenuationProxyTest, OwnWishIsNotAnsweredBeforeEnable) {
    proxy.setAttenuation(50);
    processAllEvents();
    EXPECT_THAT(reported, IsEmpty());
}

TEST_F(SystemAttenuationProxyTest, EnableTwiceReportsOnce) {
    proxy.enable();
    proxy.enable();
    setInTree(-5);
    processAllEvents();
    EXPECT_EQ(reported.back(), -5);
    reported.clear();
    setInTree(-6);
    processAllEvents();
    EXPECT_THAT(reported, ElementsAre(-6));
}

TEST_F(SystemAttenuationProxyTest, OwnChangeIsReportedToo) {
    proxy.enable();
    processAllEvents();
    proxy.setAttenuation(-30.5);
    processAllEvents();
    EXPECT_THAT(reported, ElementsAre(0, -30.5));
}

TEST_F(SystemAttenuationProxyTest, SetAttenuationIsInTheTreeAtOnce) {
    proxy.setAttenuation(-30.5);
    EXPECT_EQ(inTree(), -30.5);
}

TEST_F(SystemAttenuationProxyTest, SetAttenuationKeepsToTheVolumeMap) {
    proxy.setAttenuation(6);
    EXPECT_EQ(inTree(), 0);
    proxy.setAttenuation(-81);
    EXPECT_EQ(inTree(), kQuietest);
    proxy.setAttenuation(std::numeric_limits<double>::infinity());
    EXPECT_EQ(inTree(), 0);
    proxy.setAttenuation(-std::numeric_limits<double>::infinity());
    EXPECT_EQ(inTree(), kQuietest);
}

TEST_F(SystemAttenuationProxyTest, NotANumberIsIgnoredWithAWarning) {
    const LogCapture log("Platform");
    proxy.setAttenuation(-7);
    proxy.setAttenuation(std::nan(""));
    EXPECT_EQ(inTree(), -7);
    EXPECT_THAT(log.lines(), ElementsAre("WARN Attenuation of Test is not a number, ignored"));
}

TEST_F(SystemAttenuationProxyTest, SlotCanBeInvokedByName) {
    EXPECT_TRUE(QMetaObject::invokeMethod(&proxy, "setAttenuation", Qt::AutoConnection,
                                          Q_ARG(double, -9.0)));
    EXPECT_EQ(inTree(), -9);
}

TEST_F(SystemAttenuationProxyTest, ReportsInItsOwnThread) {
    proxy.enable();
    processAllEvents();
    std::atomic<QThread*> reporter{nullptr};
    QObject::connect(&proxy, &SystemAttenuationProxy::attenuationChanged,
                     [&](double) { reporter = QThread::currentThread(); });
    std::thread([] { setInTree(-4); }).join();
    EXPECT_EQ(reporter, nullptr);
    EXPECT_TRUE(processEventsUntil([&] { return reporter != nullptr; }));
    EXPECT_EQ(reporter, proxy.thread());
}

TEST_F(SystemAttenuationProxyTest, MayBeDestroyedWhileAReportWaits) {
    {
        SystemAttenuationProxy shortLived(QStringLiteral("Short"), 250, true);
        shortLived.enable();
        setInTree(-2);
    }
    processAllEvents();
    EXPECT_EQ(inTree(), -2);
}
