// The pause reasons from logind's real D-Bus interface, as python-dbusmock serves it on a bus of
// the test's own.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QElapsedTimer>
#include <gtest/gtest.h>

#include "tests/helpers/QtSpin.h"

#include "KestruneDock/Desktop/SessionWatch.h"
#include "KestruneKit/DevTools/KestruneActivity.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/MockBus.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using Reason = KestruneActivity::PauseReason;

using test::spinUntil;

const QString login1 = QStringLiteral("org.freedesktop.login1");

TEST(SessionWatch, PausesForSleepALockedScreenAndAnotherUsersSession)
{
    if (!test::MockBus::available())
        GTEST_SKIP() << "dbus-daemon is not installed (scripts/setup installs it)";
    test::MockBus logind;
    ASSERT_TRUE(logind.serve("logind", login1)) << "python-dbusmock's logind did not come up";
    const QString manager = QStringLiteral("/org/freedesktop/login1");
    logind.mock(login1, manager, QStringLiteral("AddSeat"), { QStringLiteral("seat0") });
    logind.mock(login1, manager, QStringLiteral("AddUser"), { quint32(1000), QStringLiteral("ada"), true });
    logind.mock(login1, manager, QStringLiteral("AddSession"),
        { QStringLiteral("c1"), QStringLiteral("seat0"), quint32(1000), QStringLiteral("ada"), true });

    KestruneActivity activity;
    SessionWatch watch(activity, *logind.connection, QStringLiteral("c1"));
    ASSERT_TRUE(spinUntil([&] { return !watch.sessionPath().isEmpty(); }));
    spinUntil([] { return false; }, 100);
    EXPECT_FALSE(activity.isPaused()) << "an active, unlocked session";

    auto sleep = [&](bool sleeping) {
        logind.mock(login1, manager, QStringLiteral("EmitSignal"), { QStringLiteral("org.freedesktop.login1.Manager"),
            QStringLiteral("PrepareForSleep"), QStringLiteral("b"), QVariantList { sleeping } });
    };
    sleep(true);
    EXPECT_TRUE(spinUntil([&] { return activity.isRaised(Reason::systemSleep); }));
    sleep(false);
    EXPECT_TRUE(spinUntil([&] { return !activity.isRaised(Reason::systemSleep); }));

    const QString session = watch.sessionPath();
    logind.call(login1, session, QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("SetLockedHint"), { true });
    EXPECT_TRUE(spinUntil([&] { return activity.isRaised(Reason::sessionInactive); })) << "locked";
    logind.call(login1, session, QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("SetLockedHint"), { false });
    EXPECT_TRUE(spinUntil([&] { return !activity.isPaused(); })) << "unlocked";

    QVariantMap inactive { { QStringLiteral("Active"), false } };
    logind.mock(login1, session, QStringLiteral("UpdateProperties"), { QStringLiteral("org.freedesktop.login1.Session"), inactive });
    EXPECT_TRUE(spinUntil([&] { return activity.isRaised(Reason::sessionInactive); })) << "another user's turn";

    // A watch that goes takes its reasons with it.
    sleep(true);
    ASSERT_TRUE(spinUntil([&] { return activity.isRaised(Reason::systemSleep); }));
    {
        SessionWatch second(activity, *logind.connection, QStringLiteral("c1"));
    }
    EXPECT_FALSE(activity.isPaused());
}

TEST(SessionWatch, WithoutLogindNothingIsPaused)
{
    if (!test::MockBus::available())
        GTEST_SKIP() << "dbus-daemon is not installed (scripts/setup installs it)";
    test::MockBus bus;
    ASSERT_TRUE(bus.connection && bus.connection->isConnected());
    KestruneActivity activity;
    // A bus where no one answers for logind, and one that is not there at all.
    SessionWatch watch(activity, *bus.connection, QStringLiteral("c1"));
    SessionWatch nowhere(activity, QDBusConnection(QStringLiteral("no such bus")));
    spinUntil([] { return false; }, 300);
    EXPECT_TRUE(watch.sessionPath().isEmpty());
    EXPECT_FALSE(activity.isPaused());
}

} // namespace
} // namespace kestrune
