// What a widget tile's news costs on screen: the dock with the Developer widgets, offscreen, and
// one tile whose text changed repainted (only its rectangle) beside the whole window repainted.
//
//   build/default/bench/kestrune-dock-paint-bench

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>

#include <QApplication>
#include <QPainter>
#include <QRegion>

#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/Dock/DockStore.h"
#include "KestruneDock/Panel/DockPanel.h"
#include "KestruneDock/Panel/DockPanelController.h"
#include "KestruneDock/Panel/TileRasterQt.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetRow.h"
#include "KestruneKit/Preferences/Preferences.h"
#include "tests/helpers/FakeWorkspace.h"

namespace kestrune {
namespace {

class DeveloperDock {
public:
    DeveloperDock()
    {
        workspace.suffix = ".desktop";
        for (const char* app : { "/apps/files.desktop", "/apps/browser.desktop", "/apps/terminal.desktop" })
            workspace.files.insert(app);
        preferences.set(DockStore::pinnedKey, std::vector<std::string> { "/apps/files.desktop", "/apps/browser.desktop", "/apps/terminal.desktop" });
        widgets.apply(*widgetPreset("Developer"));
        // First in the row, so it is on the first page of the offscreen screen.
        timestamp = widgets.instances()[6].id;
        for (int step = 0; step < 6; ++step)
            widgets.moveUp(timestamp);
        store = std::make_unique<DockStore>(preferences, workspace, runtime, &raster);
        controller = std::make_unique<DockPanelController>(preferences, *store, runtime);
        controller->setWidgetRow(&row);
        controller->show();
        for (int round = 0; round < 20; ++round)
            QApplication::processEvents();
    }
    ~DeveloperDock()
    {
        controller.reset();
        std::filesystem::remove_all(folder);
    }

    // The Timestamp tile: its text changes every second.
    [[nodiscard]] QRect tileRect() const
    {
        for (size_t index = 0; index < controller->items().size(); ++index)
            if (controller->items()[index].path == timestamp.toString())
                return controller->slotOnDesktop(index).translated(-controller->windowRect().x, -controller->windowRect().y);
        return {};
    }

    std::string folder = std::filesystem::temp_directory_path() / ("kestrune-paint-bench-" + std::to_string(::getpid()));
    JSONFilePreferences preferences { folder + "/app.quillane.dock.json" };
    test::FakeWorkspace workspace;
    QtRuntime runtime;
    TileRasterQt raster;
    WidgetStore widgets { preferences };
    WidgetPaging paging { widgets, preferences };
    WidgetMonitors monitors { runtime };
    WidgetRow row { widgets, paging, monitors };
    Uuid timestamp;
    std::unique_ptr<DockStore> store;
    std::unique_ptr<DockPanelController> controller;
};

// Made at first use, and gone before the application is.
std::unique_ptr<DeveloperDock> sharedDock;

DeveloperDock& dock()
{
    if (!sharedDock)
        sharedDock = std::make_unique<DeveloperDock>();
    return *sharedDock;
}

void repaint(benchmark::State& state, bool wholeWindow)
{
    DeveloperDock& shared = dock();
    QRect tile = shared.tileRect();
    if (tile.isEmpty()) {
        state.SkipWithError("the Timestamp tile is not on the first page");
        return;
    }
    DockPanel& panel = shared.controller->panel();
    QRect area = wholeWindow ? panel.rect() : tile;
    for (auto _ : state)
        panel.repaint(area);
    state.counters["pixels"] = static_cast<double>(area.width()) * area.height();
    state.counters["windowPixels"] = static_cast<double>(panel.width()) * panel.height();
}

// The row's own drawing of the tile's rectangle, without Qt's repaint around it.
void BM_DrawOneChangedTile(benchmark::State& state)
{
    DeveloperDock& shared = dock();
    QRect tile = shared.tileRect();
    QImage frame(shared.controller->panel().size(), QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        QPainter painter(&frame);
        painter.setClipRect(tile);
        shared.controller->paint(painter, 1, false);
    }
}

void BM_RepaintOneChangedTile(benchmark::State& state) { repaint(state, false); }
BENCHMARK(BM_DrawOneChangedTile)->Unit(benchmark::kMicrosecond);
void BM_RepaintWholeDock(benchmark::State& state) { repaint(state, true); }
BENCHMARK(BM_RepaintOneChangedTile)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RepaintWholeDock)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace kestrune

int main(int argc, char** argv)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    kestrune::sharedDock.reset();
    return 0;
}
