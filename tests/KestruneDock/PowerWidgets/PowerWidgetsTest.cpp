// The power widgets against UPower's and logind's real D-Bus interfaces, as python-dbusmock
// serves them on a bus of the test's own; every battery face painted at both dock sizes.

#include <cstdlib>
#include <filesystem>

#include <xcb/screensaver.h>

#include <QDBusArgument>
#include <QDBusVariant>
#include <QImage>
#include <QPainter>
#include <QProgressBar>
#include <gtest/gtest.h>

#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/Desktop/DesktopBus.h"
#include "KestruneDock/PowerWidgets/BatteryWidget.h"
#include "KestruneDock/PowerWidgets/KeepAwakeCenter.h"
#include "KestruneDock/PowerWidgets/KeepAwakeWidget.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "tests/helpers/MockBus.h"
#include "tests/helpers/WidgetImages.h"
#include "tests/helpers/XSession.h"

namespace kestrune {
namespace {

const QString upower = QStringLiteral("org.freedesktop.UPower");
const QString upowerPath = QStringLiteral("/org/freedesktop/UPower");

QImage render(BatteryFace face, const BatteryReading& reading, double size, int scale)
{
    double length = batteryFaceLength(face, size, reading);
    QImage image(QSize(static_cast<int>(std::ceil(length)) * scale, static_cast<int>(size) * scale), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(scale);
    image.fill(QColor(0x2b, 0x2b, 0x30));
    QPainter painter(&image);
    widgetface::paintPlate(painter, QRectF(0, 0, length, size), WidgetPaintContext { double(scale), false });
    paintBatteryFace(face, painter, QRectF(0, 0, length, size), reading);
    return image;
}

TEST(BatteryWidget, ShowsUPowersBatteriesAndAccessoriesAndFollowsTheirChanges)
{
    if (!test::MockBus::available())
        GTEST_SKIP() << "dbus-daemon is not installed (scripts/setup installs it)";
    test::MockBus bus;
    ASSERT_TRUE(bus.connection && bus.connection->isConnected());
    setSystemServicesBus(*bus.connection);
    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    WidgetInstance instance = WidgetInstance::make(WidgetKind::battery);
    BatteryWidget tile(instance, monitors);

    // No UPower on the bus: one plain sentence, and nothing else.
    tile.setShown(true);
    ASSERT_TRUE(test::spinUntil([&] { return monitors.battery().reading().known; }));
    EXPECT_EQ(tile.accessibleText(), "Battery, UPower isn’t running, so batteries can’t be read");
    tile.setShown(false);

    ASSERT_TRUE(bus.serve("upower", upower, R"({"OnBattery": true})"));
    QString laptop = bus.mock(upower, upowerPath, QStringLiteral("AddDischargingBattery"),
                              { QStringLiteral("BAT0"), QStringLiteral("Laptop battery"), 30.0, qint64(1200) })
                         .arguments()
                         .value(0)
                         .toString();
    QString mouse = bus.mock(upower, upowerPath, QStringLiteral("AddDischargingBattery"),
                             { QStringLiteral("mouse_0"), QStringLiteral("MX Master"), 15.0, qint64(0) })
                        .arguments()
                        .value(0)
                        .toString();
    bus.mock(upower, upowerPath, QStringLiteral("SetDeviceProperties"),
             { QVariant::fromValue(QDBusObjectPath(mouse)), QVariantMap { { QStringLiteral("Type"), QVariant::fromValue(quint32(5)) },
                                                                          { QStringLiteral("PowerSupply"), false } } });
    int changes = 0;
    tile.changed = [&] { ++changes; };
    tile.setShown(true);
    ASSERT_TRUE(test::spinUntil([&] { return monitors.battery().reading().problem.isEmpty() && !monitors.battery().reading().batteries.empty(); }));
    EXPECT_EQ(tile.accessibleText(), "Battery 30\u2009%, 0:20 left");
    const BatteryReading& reading = monitors.battery().reading();
    ASSERT_EQ(reading.accessories.size(), 1u);
    EXPECT_EQ(reading.accessories[0].kindName(), QStringLiteral("Mouse"));
    EXPECT_TRUE(reading.onBattery);
    {
        std::unique_ptr<QWidget> card(tile.makeCard());
        std::vector<std::string> names;
        for (auto* bar : card->findChildren<QProgressBar*>())
            names.push_back(bar->accessibleName().toStdString());
        EXPECT_EQ(names, (std::vector<std::string> { "Battery (Laptop battery)", "Mouse (MX Master)" }));
    }
    for (int index = 0; index <= static_cast<int>(BatteryFace::dots); ++index) {
        static const char* names[] = { "ring", "classic", "capsule", "numeral", "timeLeft", "power", "dots" };
        auto face = static_cast<BatteryFace>(index);
        EXPECT_EQ(batteryFaceFromString(names[index]), face);
        for (double size : { 16.0, 96.0 })
            for (int scale : { 1, 2 })
                test::saveWidgetImage(render(face, reading, size, scale),
                     std::string("battery-") + names[index] + "-" + std::to_string(int(size)) + "-" + std::to_string(scale) + "x");
    }

    // Plugged in: UPower says so, and the tile follows without being asked.
    changes = 0;
    bus.mock(upower, upowerPath, QStringLiteral("SetDeviceProperties"),
             { QVariant::fromValue(QDBusObjectPath(laptop)),
               QVariantMap { { QStringLiteral("State"), QVariant::fromValue(quint32(1)) }, { QStringLiteral("Percentage"), 31.0 } } });
    EXPECT_TRUE(test::spinUntil([&] { return tile.accessibleText() == "Battery 31\u2009%, Charging"; })) << tile.accessibleText();
    EXPECT_GT(changes, 0);
    for (int scale : { 1, 2 })
        test::saveWidgetImage(render(BatteryFace::ring, monitors.battery().reading(), 96, scale), "battery-ring-charging-96-" + std::to_string(scale) + "x");

    // Hidden, it stops listening.
    tile.setShown(false);
    EXPECT_FALSE(monitors.battery().isWanted());
    setSystemServicesBus(QDBusConnection::systemBus());
}

TEST(BatteryWidget, ADesktopShowsNoBatteryOrItsLowestAccessory)
{
    BatteryReading desktop;
    desktop.known = true;
    EXPECT_EQ(batteryShown(desktop).status, QStringLiteral("No battery"));
    EXPECT_FALSE(batteryShown(desktop).device);
    BatteryDevice keyboard { QStringLiteral("/k"), QStringLiteral("K380"), 6, 80, 2, 0, 0, false };
    BatteryDevice mouse { QStringLiteral("/m"), QStringLiteral("MX"), 5, 12, 2, 0, 0, false };
    sortDevice(keyboard, desktop);
    sortDevice(mouse, desktop);
    sortDevice(BatteryDevice { QStringLiteral("/ac"), {}, 1, 0, 0, 0, 0, true }, desktop);
    ASSERT_EQ(desktop.accessories.size(), 2u);
    BatteryShown shown = batteryShown(desktop);
    ASSERT_TRUE(shown.device);
    EXPECT_EQ(shown.caption, QStringLiteral("Mouse"));
    EXPECT_EQ(shown.device->percentage, 12);
    EXPECT_EQ(hoursAndMinutesLeft(5 * 3600 + 59 * 60 + 40), QStringLiteral("6:00"));
    EXPECT_EQ(hoursAndMinutesLeft(0), QString());
    for (int scale : { 1, 2 })
        test::saveWidgetImage(render(BatteryFace::dots, desktop, 96, scale), "battery-dots-accessories-96-" + std::to_string(scale) + "x");
}

TEST(PowerWidgets, KeepAwakeHoldsLogindsInhibitorOnlyWhileOnAndLockAndSleepAskLogind)
{
    if (!test::MockBus::available())
        GTEST_SKIP() << "dbus-daemon is not installed (scripts/setup installs it)";
    test::MockBus bus;
    const QString login1 = QStringLiteral("org.freedesktop.login1");
    const QString manager = QStringLiteral("/org/freedesktop/login1");
    ASSERT_TRUE(bus.serve("logind", login1));
    bus.mock(login1, manager, QStringLiteral("AddSession"),
             { QStringLiteral("c1"), QStringLiteral("seat0"), quint32(1000), QStringLiteral("ada"), true });
    setSystemServicesBus(*bus.connection);
    qputenv("XDG_SESSION_ID", "c1");
    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    auto inhibitors = [&] {
        QDBusMessage reply = bus.call(login1, manager, QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("ListInhibitors"));
        QStringList held;
        const QDBusArgument list = reply.arguments().value(0).value<QDBusArgument>();
        list.beginArray();
        while (!list.atEnd()) {
            QString what, who, why, mode;
            uint user = 0, pid = 0;
            list.beginStructure();
            list >> what >> who >> why >> mode >> user >> pid;
            list.endStructure();
            held << what + QLatin1Char(' ') + who + QLatin1Char(' ') + mode;
        }
        list.endArray();
        return held;
    };

    KeepAwakeWidget awake(WidgetInstance::make(WidgetKind::keepAwake), monitors);
    EXPECT_EQ(awake.accessibleText(), "Keep Awake: Off");
    EXPECT_TRUE(awake.pressed(QPointF(0.5, 0.5))) << "a click on the tile turns it over";
    ASSERT_TRUE(test::spinUntil([&] { return monitors.keepAwake().isHeld(); }));
    EXPECT_EQ(awake.accessibleText(), "Keep Awake: On");
    EXPECT_EQ(inhibitors(), QStringList { QStringLiteral("idle:sleep Kestrune Dock block") });
    awake.pressed(QPointF(0.5, 0.5));
    EXPECT_FALSE(monitors.keepAwake().isHeld());
    EXPECT_TRUE(test::spinUntil([&] { return inhibitors().isEmpty(); })) << "logind still holds the inhibitor after Off";
    // On again, then quitting: the first step lets it go.
    monitors.keepAwake().setOn(true);
    ASSERT_TRUE(test::spinUntil([&] { return monitors.keepAwake().isHeld(); }));
    monitors.releaseHeld();
    EXPECT_TRUE(test::spinUntil([&] { return inhibitors().isEmpty(); })) << "quitting kept the inhibitor";

    // Lock & Sleep: the left half locks this session, the right half suspends.
    LockSleepWidget lockSleep(WidgetInstance::make(WidgetKind::lockSleep));
    auto called = [&](const QString& path, const QString& method) { return bus.callsOf(login1, path, method) > 0; };
    lockSleep.pressed(QPointF(0.2, 0.5));
    EXPECT_TRUE(test::spinUntil([&] { return called(QStringLiteral("/org/freedesktop/login1/session/c1"), QStringLiteral("Lock")); }))
        << "Lock did not reach this session";
    EXPECT_FALSE(called(manager, QStringLiteral("Suspend"))) << "the lock half slept";
    lockSleep.pressed(QPointF(0.8, 0.5));
    EXPECT_TRUE(test::spinUntil([&] { return called(manager, QStringLiteral("Suspend")); })) << "Sleep did not reach logind";
    EXPECT_TRUE(lockSleep.failure().isEmpty()) << lockSleep.failure().toStdString();
    test::saveTileImages(lockSleep, "lock-sleep");
    test::saveTileImages(awake, "keep-awake");
    setSystemServicesBus(QDBusConnection::systemBus());
    qunsetenv("XDG_SESSION_ID");
}

TEST(PowerWidgets, KeepAwakeHoldsTheXScreenSaverOffWhileOn)
{
    test::XSession session(test::XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    // The saver comes on after a second of no input, as `xset s 1` would have it.
    std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> user(xcb_connect(session.display().c_str(), nullptr), &xcb_disconnect);
    xcb_set_screen_saver(user.get(), 1, 0, XCB_BLANKING_NOT_PREFERRED, XCB_EXPOSURES_ALLOWED);
    auto saverOn = [&] {
        std::unique_ptr<xcb_screensaver_query_info_reply_t, decltype(&std::free)> info(
            xcb_screensaver_query_info_reply(user.get(), xcb_screensaver_query_info(user.get(), session.root()), nullptr), &std::free);
        return info && info->state == XCB_SCREENSAVER_STATE_ON;
    };
    auto waitAndSee = [&](int milliseconds) {
        xcb_force_screen_saver(user.get(), XCB_SCREEN_SAVER_RESET);
        xcb_flush(user.get());
        test::spinUntil(saverOn, milliseconds);
        return saverOn();
    };
    ASSERT_TRUE(waitAndSee(5000)) << "the X server's saver never came on by itself";

    QtRuntime runtime;
    std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> dock(xcb_connect(session.display().c_str(), nullptr), &xcb_disconnect);
    KeepAwakeCenter awake(QDBusConnection(QStringLiteral("no bus")), dock.get());
    awake.setOn(true);
    EXPECT_FALSE(waitAndSee(2500)) << "the saver came on while Keep Awake was on";
    awake.setOn(false);
    EXPECT_TRUE(waitAndSee(5000)) << "the saver stayed off after Keep Awake was turned off";
}

TEST(PowerWidgets, WithoutLogindKeepAwakeSaysSoInASentence)
{
    if (!test::MockBus::available())
        GTEST_SKIP() << "dbus-daemon is not installed (scripts/setup installs it)";
    test::MockBus bus;
    setSystemServicesBus(*bus.connection);
    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    monitors.keepAwake().setOn(true);
    ASSERT_TRUE(test::spinUntil([&] { return !monitors.keepAwake().problem().isEmpty(); }));
    EXPECT_EQ(monitors.keepAwake().problem(), QStringLiteral("Couldn’t keep awake: logind isn’t running on this computer"));
    KeepAwakeWidget awake(WidgetInstance::make(WidgetKind::keepAwake), monitors);
    test::saveTileImages(awake, "keep-awake-problem");
    LockSleepWidget lockSleep(WidgetInstance::make(WidgetKind::lockSleep));
    lockSleep.pressed(QPointF(0.8, 0.5));
    EXPECT_TRUE(test::spinUntil([&] { return !lockSleep.failure().isEmpty(); }));
    EXPECT_EQ(lockSleep.failure(), QStringLiteral("Couldn’t sleep: logind isn’t running on this computer"));
    setSystemServicesBus(QDBusConnection::systemBus());
}

} // namespace
} // namespace kestrune
