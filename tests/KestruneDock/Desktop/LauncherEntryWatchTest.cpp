// Badges from the LauncherEntry signal, sent on a bus of the test's own as an app sends them.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <gtest/gtest.h>

#include "tests/helpers/QtSpin.h"

#include "KestruneDock/Desktop/LauncherEntryWatch.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/Spawn.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using test::spinUntil;

TEST(LauncherEntryWatch, FollowsCountsProgressAndUrgencyWithTheirVisibleSwitches)
{
    ChildProcessOptions daemon;
    daemon.executable = "/usr/bin/dbus-daemon";
    daemon.arguments = { "--session", "--nofork", "--print-address=1" };
    daemon.error = ChildStream::nullDevice;
    auto bus = test::spawn(daemon);
    if (!bus)
        GTEST_SKIP() << "dbus-daemon does not run here (scripts/setup installs it)";
    std::string line;
    ASSERT_TRUE(test::readUntil(bus->outputFd(), line, "\n", 10));
    QString address = QString::fromStdString(line.substr(0, line.find('\n')));
    QDBusConnection dock = QDBusConnection::connectToBus(address, QStringLiteral("dock"));
    QDBusConnection app = QDBusConnection::connectToBus(address, QStringLiteral("app"));
    ASSERT_TRUE(dock.isConnected() && app.isConnected());

    std::map<std::string, DockBadge> heard;
    LauncherEntryWatch watch([&](const std::string& id, const DockBadge& badge) { heard[id] = badge; }, dock);
    ASSERT_TRUE(watch.isWatching());
    auto send = [&](const QString& uri, const QVariantMap& properties) {
        QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/com/example/Mail"), QStringLiteral("com.canonical.Unity.LauncherEntry"),
            QStringLiteral("Update"));
        signal << uri << properties;
        app.send(signal);
    };

    // The watch's match rule reaches the bus on its own time: the first update is sent again
    // until it is heard, as apps send theirs again.
    ASSERT_TRUE(spinUntil([&] {
        send(QStringLiteral("application://org.example.Mail.desktop"),
            { { QStringLiteral("count"), qint64(7) }, { QStringLiteral("count-visible"), true } });
        return spinUntil([&] { return heard.contains("org.example.Mail"); }, 200);
    }));
    EXPECT_EQ(heard["org.example.Mail"].count, 7);

    send(QStringLiteral("application://org.example.Mail.desktop"),
        { { QStringLiteral("progress"), 0.4 }, { QStringLiteral("progress-visible"), true }, { QStringLiteral("urgent"), true } });
    ASSERT_TRUE(spinUntil([&] { return heard["org.example.Mail"].progress.has_value(); }));
    EXPECT_EQ(heard["org.example.Mail"].count, 7) << "what was said before stays";
    EXPECT_DOUBLE_EQ(*heard["org.example.Mail"].progress, 0.4);
    EXPECT_TRUE(heard["org.example.Mail"].urgent);

    // The switches alone hide and show again what was said.
    send(QStringLiteral("application://org.example.Mail.desktop"), { { QStringLiteral("count-visible"), false } });
    ASSERT_TRUE(spinUntil([&] { return !heard["org.example.Mail"].count; }));
    send(QStringLiteral("application://org.example.Mail.desktop"), { { QStringLiteral("count-visible"), true } });
    ASSERT_TRUE(spinUntil([&] { return heard["org.example.Mail"].count == 7; }));

    // A uri that is no desktop entry is not listened to.
    send(QStringLiteral("file:///etc/passwd"), { { QStringLiteral("count"), qint64(1) }, { QStringLiteral("count-visible"), true } });
    send(QStringLiteral("application://org.example.Other.desktop"), { { QStringLiteral("urgent"), true } });
    ASSERT_TRUE(spinUntil([&] { return heard.contains("org.example.Other"); }));
    EXPECT_EQ(heard.size(), 2u);
    QDBusConnection::disconnectFromBus(QStringLiteral("dock"));
    QDBusConnection::disconnectFromBus(QStringLiteral("app"));
}

} // namespace
} // namespace kestrune
