// The Your-computer tiles on this machine's real figures, painted offscreen at a small and a
// large dock: what they say, and that they want the sampler and the disks only while shown.

#include <filesystem>

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
#include "tests/helpers/QtSpin.h"

namespace kestrune {
namespace {

void saveTile(const WidgetTile& tile, const std::string& name)
{
    std::filesystem::create_directories(std::string(KESTRUNE_SCREENS) + "/widgets");
    for (double size : { 16.0, 96.0 }) {
        for (int scale : { 1, 2 }) {
            double length = tile.length(size);
            QImage image(QSize(static_cast<int>(std::ceil(length)) * scale, static_cast<int>(size) * scale), QImage::Format_ARGB32_Premultiplied);
            image.setDevicePixelRatio(scale);
            image.fill(QColor(0x2b, 0x2b, 0x30));
            QPainter painter(&image);
            tile.paint(painter, QRectF(0, 0, length, size), WidgetPaintContext { double(scale), false });
            painter.end();
            image.save(QString::fromStdString(std::string(KESTRUNE_SCREENS) + "/widgets/" + name + "-" + std::to_string(int(size)) + "-"
                                              + std::to_string(scale) + "x.png"));
        }
    }
}

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
    saveTile(activity, "activity-bars");
    saveTile(ringed, "activity-rings");
    saveTile(network, "network-speed");
    saveTile(graphed, "network-graph");

    // The card adds the busiest processes while it is open, and lets them go with it.
    {
        std::unique_ptr<QWidget> card(activity.makeCard());
        EXPECT_TRUE(monitors.processes().poller().isActive());
        auto* busiest = card->findChild<QListWidget*>();
        ASSERT_TRUE(busiest);
        ASSERT_TRUE(test::spinUntil([&] { return monitors.processes().reading().has_value(); }, 5000));
        auto* summary = card->findChild<QLabel*>();
        EXPECT_TRUE(test::spinUntil([&] { return summary->text().startsWith(QStringLiteral("Processor ")); }, 5000)) << summary->text().toStdString();
        card->resize(420, card->sizeHint().height());
        for (int scale : { 1, 2 }) {
            QImage image(card->size() * scale, QImage::Format_ARGB32_Premultiplied);
            image.setDevicePixelRatio(scale);
            image.fill(Qt::white);
            card->render(&image);
            image.save(QString::fromStdString(std::string(KESTRUNE_SCREENS) + "/widgets/card-activity-" + std::to_string(scale) + "x.png"));
        }
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
    saveTile(tile, "storage");
    tile.setShown(false);
    EXPECT_FALSE(monitors.storage().poller().isActive());
}

} // namespace
} // namespace kestrune
