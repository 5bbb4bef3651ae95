// The dock's per-frame arithmetic: both must be negligible next to a 120 Hz frame (8.3 ms).

#include <unistd.h>

#include <filesystem>

#include <benchmark/benchmark.h>

#include "KestruneDock/Dock/DockMagnification.h"
#include "KestruneDock/Dock/DockRowLayout.h"
#include "KestruneDock/Widgets/WidgetPaging.h"

namespace kestrune {
namespace {

// One pointer move along a row of 200 tiles: every slot's scale.
void MagnificationOf200Slots(benchmark::State& state)
{
    DockPreferences preferences;
    preferences.iconSize = 48;
    preferences.magnifiedSize = 96;
    DockMagnification magnification;
    magnification.setPreferences(preferences);
    DockSlotGeometry geometry;
    for (size_t slot = 0; slot < 200; ++slot)
        geometry.setCenter(slot, 24.0 + 52.0 * static_cast<double>(slot));
    std::vector<double> scales(200);
    double pointer = 0;
    for (auto _ : state) {
        pointer = pointer > 10400 ? 0 : pointer + 7.3;
        magnification.setPointer(pointer);
        magnification.scales(48, geometry, scales);
        benchmark::DoNotOptimize(scales.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(MagnificationOf200Slots);

// One pointer move along a full row: 24 app tiles, dividers, 12 widgets and the trash, laid out
// again with every frame, as the panel does on each motion event.
void RowLayoutOnPointerMove(benchmark::State& state)
{
    DockPreferences preferences;
    preferences.iconSize = 48;
    preferences.magnifiedSize = 96;
    std::vector<DockRowSlot> slots(24, DockRowSlot { DockSlotKind::app });
    slots.push_back({ DockSlotKind::divider });
    for (int widget = 0; widget < 12; ++widget)
        slots.push_back({ DockSlotKind::widget, 60.0 + widget * 7 });
    slots.push_back({ DockSlotKind::divider });
    slots.push_back({ DockSlotKind::trash });
    DockRowLayout layout;
    layout.setPreferences(preferences);
    layout.setSlots(slots);
    double pointer = 0;
    for (auto _ : state) {
        pointer = pointer > layout.restingLength() ? 0 : pointer + 3.1;
        layout.setPointer(pointer);
        benchmark::DoNotOptimize(layout.frames().data());
        benchmark::DoNotOptimize(layout.hit(pointer, 10));
    }
}
BENCHMARK(RowLayoutOnPointerMove);

// A full new cut of a row of 50 widgets: one tile's length moves past the tolerance, so the
// pager lays out every page again and tells its observers.
void PageCutOf50Widgets(benchmark::State& state)
{
    auto folder = std::filesystem::temp_directory_path() / ("kestrune-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    {
        JSONFilePreferences preferences((folder / "app.quillane.dock.json").string());
        WidgetStore store(preferences);
        store.apply(WidgetPreset { "bench", "", "", std::vector<WidgetKind>(50, WidgetKind::note) });
        WidgetPaging paging(store, preferences);
        paging.setIconSize(48);
        paging.setAvailable(900);
        for (size_t i = 0; i < store.instances().size(); ++i)
            paging.setMeasurement(store.instances()[i].id, 60.0 + static_cast<double>(i % 7) * 11);
        auto first = store.instances().front().id;
        size_t observed = 0;
        paging.addObserver([&] { ++observed; });
        double length = 100;
        for (auto _ : state) {
            length = length == 100 ? 101 : 100;
            paging.setMeasurement(first, length);
            benchmark::DoNotOptimize(paging.pages().data());
        }
        state.counters["pages"] = static_cast<double>(paging.pages().size());
        benchmark::DoNotOptimize(observed);
    }
    std::filesystem::remove_all(folder);
}
BENCHMARK(PageCutOf50Widgets);

} // namespace
} // namespace kestrune
