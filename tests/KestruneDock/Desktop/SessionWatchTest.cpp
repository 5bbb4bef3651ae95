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
#include "tests/helpers/Spawn.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using Reason = KestruneActivity::PauseReason;

using test::spinUntil;

// A bus of our own with logind's mock on it.
class Logind {
public:
    explicit Logind(bool withMock = true)
    {
        ChildProcessOptions daemon;
        daemon.executable = "/usr/bin/dbus-daemon";
        daemon.arguments = { "--session", "--nofork", "--print-address=1" };
        daemon.error = ChildStream::nullDevice;
        bus_ = test::spawn(daemon);
        if (!bus_)
            return;
        std::string line;
        (void)test::readUntil(bus_->outputFd(), line, "\n", 10);
        address = line.substr(0, line.find('\n'));
        connection = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(QString::fromStdString(address), QStringLiteral("logind-mock")));
        if (!withMock)
            return;
        ChildProcessOptions mock;
        mock.executable = "/usr/bin/python3";
        mock.arguments = { "-m", "dbusmock", "--template", "logind" };
        Environment environment = processEnvironment();
        environment["DBUS_SYSTEM_BUS_ADDRESS"] = address;
        mock.environment = environment;
        mock.output = ChildStream::nullDevice;
        mock.error = ChildStream::nullDevice;
        mock_ = test::spawn(mock);
        ready = connection->isConnected() && spinUntil([&] {
            return connection->interface()->isServiceRegistered(QStringLiteral("org.freedesktop.login1")).value();
        });
    }

    ~Logind()
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("logind-mock"));
        if (mock_) {
            mock_->signal(SIGTERM);
            mock_->wait();
        }
        if (bus_) {
            bus_->signal(SIGTERM);
            bus_->wait();
        }
    }

    // A call on the mock; fails the test when it fails.
    void call(const QString& path, const QString& interface, const QString& method, const QVariantList& arguments)
    {
        QDBusMessage message = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.login1"), path, interface, method);
        message.setArguments(arguments);
        QDBusMessage reply = connection->call(message);
        EXPECT_NE(reply.type(), QDBusMessage::ErrorMessage) << method.toStdString() << ": " << reply.errorMessage().toStdString();
    }

    void mock(const QString& path, const QString& method, const QVariantList& arguments)
    {
        call(path, QStringLiteral("org.freedesktop.DBus.Mock"), method, arguments);
    }

    std::string address;
    std::unique_ptr<QDBusConnection> connection;
    bool ready = false;

private:
    std::unique_ptr<ChildProcess> bus_;
    std::unique_ptr<ChildProcess> mock_;
};

TEST(SessionWatch, PausesForSleepALockedScreenAndAnotherUsersSession)
{
    if (!isExecutableFile("/usr/bin/dbus-daemon"))
        GTEST_SKIP() << "dbus-daemon is not installed (scripts/setup installs it)";
    Logind logind;
    ASSERT_TRUE(logind.ready) << "python-dbusmock's logind did not come up";
    const QString manager = QStringLiteral("/org/freedesktop/login1");
    logind.mock(manager, QStringLiteral("AddSeat"), { QStringLiteral("seat0") });
    logind.mock(manager, QStringLiteral("AddUser"), { quint32(1000), QStringLiteral("ada"), true });
    logind.mock(manager, QStringLiteral("AddSession"),
        { QStringLiteral("c1"), QStringLiteral("seat0"), quint32(1000), QStringLiteral("ada"), true });

    KestruneActivity activity;
    SessionWatch watch(activity, *logind.connection, QStringLiteral("c1"));
    ASSERT_TRUE(spinUntil([&] { return !watch.sessionPath().isEmpty(); }));
    spinUntil([] { return false; }, 100);
    EXPECT_FALSE(activity.isPaused()) << "an active, unlocked session";

    auto sleep = [&](bool sleeping) {
        logind.mock(manager, QStringLiteral("EmitSignal"), { QStringLiteral("org.freedesktop.login1.Manager"),
            QStringLiteral("PrepareForSleep"), QStringLiteral("b"), QVariantList { sleeping } });
    };
    sleep(true);
    EXPECT_TRUE(spinUntil([&] { return activity.isRaised(Reason::systemSleep); }));
    sleep(false);
    EXPECT_TRUE(spinUntil([&] { return !activity.isRaised(Reason::systemSleep); }));

    const QString session = watch.sessionPath();
    logind.call(session, QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("SetLockedHint"), { true });
    EXPECT_TRUE(spinUntil([&] { return activity.isRaised(Reason::sessionInactive); })) << "locked";
    logind.call(session, QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("SetLockedHint"), { false });
    EXPECT_TRUE(spinUntil([&] { return !activity.isPaused(); })) << "unlocked";

    QVariantMap inactive { { QStringLiteral("Active"), false } };
    logind.mock(session, QStringLiteral("UpdateProperties"), { QStringLiteral("org.freedesktop.login1.Session"), inactive });
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
    if (!isExecutableFile("/usr/bin/dbus-daemon"))
        GTEST_SKIP() << "dbus-daemon is not installed (scripts/setup installs it)";
    Logind bus(false);
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
