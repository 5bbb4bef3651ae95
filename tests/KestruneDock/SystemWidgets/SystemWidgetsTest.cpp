// The Your-computer tiles on this machine's real figures, painted offscreen at a small and a
// large dock: what they say, and that they want the sampler and the disks only while shown.

#include <filesystem>
#include <optional>

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <QImage>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <gtest/gtest.h>

#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/SystemWidgets/ActivityWidget.h"
#include "KestruneDock/SystemWidgets/NetworkWidget.h"
#include "KestruneDock/SystemWidgets/StorageWidget.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneKit/SystemStats/ProcessesMonitor.h"
#include "KestruneKit/SystemStats/StorageMonitor.h"
#include "KestruneKit/SystemStats/SystemStatsSampler.h"
#include "tests/helpers/MockBus.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/WidgetImages.h"

namespace kestrune {
namespace {

TEST(SystemWidgets, ActivityAndNetworkShowTheSamplersFiguresAndHoldItOnlyWhileShown)
{
    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    WidgetInstance bars = WidgetInstance::make(WidgetKind::activity);
    WidgetInstance rings = bars;
    rings.style = "rings";
    ActivityWidget activity(bars, monitors);
    ActivityWidget ringed(rings, monitors);
    WidgetInstance graph = WidgetInstance::make(WidgetKind::network);
    graph.style = "graph";
    NetworkWidget network(WidgetInstance::make(WidgetKind::network), monitors);
    NetworkWidget graphed(graph, monitors);
    EXPECT_FALSE(monitors.systemStats().isSampling());
    EXPECT_EQ(activity.accessibleText(), "Activity, measuring");

    int drawn = 0;
    activity.changed = [&] { ++drawn; };
    for (WidgetTile* tile : std::initializer_list<WidgetTile*> { &activity, &ringed, &network, &graphed })
        tile->setShown(true);
    EXPECT_TRUE(monitors.systemStats().isSampling());
    EXPECT_EQ(monitors.systemStats().interval(), SystemStatsTile::sampleInterval);
    // Two samples: the second has processor figures.
    ASSERT_TRUE(test::spinUntil([&] { return monitors.systemStats().samples() >= 2; }, 8000));
    EXPECT_GE(drawn, 2);
    std::string said = activity.accessibleText();
    EXPECT_EQ(said.rfind("Activity, CPU ", 0), 0u) << said;
    EXPECT_NE(said.find("MEM "), std::string::npos) << said;
    EXPECT_GT(monitors.systemStats().snapshot().reading.memoryTotal, 0u);
    EXPECT_EQ(network.accessibleText().rfind("Network, down ", 0), 0u) << network.accessibleText();
    test::saveTileImages(activity, "activity-bars");
    test::saveTileImages(ringed, "activity-rings");
    test::saveTileImages(network, "network-speed");
    test::saveTileImages(graphed, "network-graph");

    // The card adds the busiest processes while it is open, and lets them go with it.
    {
        std::unique_ptr<QWidget> card(activity.makeCard());
        EXPECT_TRUE(monitors.processes().poller().isActive());
        auto* busiest = card->findChild<QListWidget*>();
        ASSERT_TRUE(busiest);
        ASSERT_TRUE(test::spinUntil([&] { return monitors.processes().reading().has_value(); }, 5000));
        auto* summary = card->findChild<QLabel*>();
        EXPECT_TRUE(test::spinUntil([&] { return summary->text().startsWith(QStringLiteral("Processor ")); }, 5000)) << summary->text().toStdString();
        test::saveCardImages(*card, "card-activity");
    }
    EXPECT_FALSE(monitors.processes().poller().isActive());

    for (WidgetTile* tile : std::initializer_list<WidgetTile*> { &activity, &ringed, &network, &graphed })
        tile->setShown(false);
    EXPECT_FALSE(monitors.systemStats().isSampling()) << "hidden tiles still sample";
}

TEST(SystemWidgets, ActivitySplitsTheProcessorByCoreKindAndColoursMemoryByPressure)
{
    SystemStatsReading reading;
    reading.cpu = 0.5;
    reading.memoryUsed = 3;
    reading.memoryTotal = 4;
    reading.pressure = SystemStatsPressure::critical;
    auto labels = [](const std::vector<ActivityWidget::Gauge>& gauges) {
        QStringList shown;
        for (const auto& gauge : gauges)
            shown << gauge.label;
        return shown.join(QLatin1Char(' ')).toStdString();
    };
    EXPECT_EQ(labels(ActivityWidget::gauges(reading)), "CPU MEM");
    reading.cores = { { 0.9, SystemStatsCoreKind::performance }, { 0.7, SystemStatsCoreKind::performance }, { 0.1, SystemStatsCoreKind::efficiency } };
    reading.gpu = 0.25;
    auto gauges = ActivityWidget::gauges(reading);
    EXPECT_EQ(labels(gauges), "P E MEM GPU");
    EXPECT_DOUBLE_EQ(gauges[0].fraction, 0.8);
    EXPECT_DOUBLE_EQ(gauges[1].fraction, 0.1);
    EXPECT_DOUBLE_EQ(gauges[2].fraction, 0.75);
    EXPECT_EQ(gauges[2].colour, stateColour::trouble());
}

TEST(SystemWidgets, StorageShowsTheSystemDisksFreeSpaceAndReadsOnlyWhileShown)
{
    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    StorageWidget tile(WidgetInstance::make(WidgetKind::storage), monitors);
    EXPECT_EQ(tile.accessibleText(), "Storage: Measuring…");
    tile.setShown(true);
    EXPECT_TRUE(monitors.storage().poller().isActive());
    ASSERT_TRUE(test::spinUntil([&] { return monitors.storage().reading().has_value(); }, 5000));
    const auto& volumes = *monitors.storage().reading();
    ASSERT_FALSE(volumes.empty()) << "this machine has no disk";
    std::string said = tile.accessibleText();
    EXPECT_EQ(said, volumes[0].name + ": " + byteText(volumes[0].free) + " free");
    test::saveTileImages(tile, "storage");
    tile.setShown(false);
    EXPECT_FALSE(monitors.storage().poller().isActive());
}

TEST(SystemWidgets, EjectAsksUDisks2AndWifiComesFromNetworkManager)
{
    if (!test::MockBus::available())
        GTEST_SKIP() << "dbus-daemon is not installed (scripts/setup installs it)";
    test::MockBus bus;
    ASSERT_TRUE(bus.connection && bus.connection->isConnected());
    auto eject = [&](const QString& device) {
        std::optional<QString> said;
        ejectDrive(*bus.connection, device, [&](const QString& failure) { said = failure; });
        EXPECT_TRUE(test::spinUntil([&] { return said.has_value(); })) << "no answer for " << device.toStdString();
        return said.value_or(QStringLiteral("no answer"));
    };
    EXPECT_EQ(eject(QStringLiteral("/dev/sdb1")), QStringLiteral("Couldn’t eject: UDisks2 isn’t running on this computer"));

    const QString udisks = QStringLiteral("org.freedesktop.UDisks2");
    ASSERT_TRUE(bus.serve(KESTRUNE_TEST_SOURCES "/helpers/udisks2_template.py", udisks));
    auto called = [&](const QString& path, const QString& method) { return bus.callsOf(udisks, path, method) > 0; };
    EXPECT_EQ(eject(QStringLiteral("/dev/sdb1")), QString());
    EXPECT_TRUE(called(QStringLiteral("/org/freedesktop/UDisks2/block_devices/sdb1"), QStringLiteral("Unmount")));
    EXPECT_TRUE(called(QStringLiteral("/org/freedesktop/UDisks2/drives/USB_Stick"), QStringLiteral("Eject")));
    EXPECT_EQ(eject(QStringLiteral("/dev/sdc1")), QStringLiteral("Couldn’t eject: a program is still using the drive"));
    EXPECT_EQ(eject(QStringLiteral("/dev/sdz9")), QStringLiteral("Couldn’t eject: the drive is gone"));

    // NetworkManager's Wi-Fi: the network of the active Wi-Fi connection, and its signal.
    const QString nm = QStringLiteral("org.freedesktop.NetworkManager");
    const QString manager = QStringLiteral("/org/freedesktop/NetworkManager");
    QObject context;
    auto wifi = [&] {
        std::optional<std::optional<WifiNetwork>> found;
        findWifi(*bus.connection, &context, [&](const std::optional<WifiNetwork>& network) { found = network; });
        EXPECT_TRUE(test::spinUntil([&] { return found.has_value(); })) << "no answer";
        return found.value_or(std::nullopt);
    };
    EXPECT_FALSE(wifi()) << "a Wi-Fi network without NetworkManager";
    ASSERT_TRUE(bus.serve("networkmanager", nm));
    EXPECT_FALSE(wifi()) << "a Wi-Fi network with no connection";
    auto result = [](const QDBusMessage& reply) {
        QVariant path = reply.arguments().value(0);
        return path.userType() == qMetaTypeId<QDBusObjectPath>() ? path.value<QDBusObjectPath>().path() : path.toString();
    };
    QString device = result(bus.mock(nm, manager, QStringLiteral("AddWiFiDevice"), { QStringLiteral("wlan0"), QStringLiteral("wlan0"), 100 }));
    QString point = result(bus.mock(nm, manager, QStringLiteral("AddAccessPoint"),
                                    { device, QStringLiteral("home"), QStringLiteral("Home Wi-Fi"), QStringLiteral("00:11:22:33:44:55"), quint32(2),
                                      quint32(2437), quint32(54000), QVariant::fromValue(uchar(73)), quint32(0) }));
    QString connection = result(bus.mock(nm, manager, QStringLiteral("AddWiFiConnection"),
                                         { device, QStringLiteral("home"), QStringLiteral("Home Wi-Fi"), QStringLiteral("wpa-psk") }));
    EXPECT_FALSE(wifi()) << "a device on no network";
    bus.mock(nm, manager, QStringLiteral("AddActiveConnection"),
             { QStringList { device }, connection, point, QStringLiteral("home"), quint32(2) });
    auto found = wifi();
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name, QStringLiteral("Home Wi-Fi"));
    EXPECT_EQ(found->signal, 73);
}

} // namespace
} // namespace kestrune
