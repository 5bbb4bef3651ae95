#pragma once
// OVERVIEW
// The widget tiles of the dock row: one per instance in the widget store, made and dropped as the
// store changes, each measured into the pager at the dock's icon size. The panel says which tiles
// are on screen; only those are shown, so only they tick or want their monitors.
//
// TYPICAL USAGE
//   WidgetRow row(store, paging, monitors);
//   row.changed = [&](const Uuid& id) { repaintTile(id); };
//   row.setOnScreen(paging.shown());            // or {} while the dock is out of sight
//   row.tile(id)->paint(painter, rect, context);
//
// Main thread only.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "KestruneDock/WidgetViews/WidgetTile.h"
#include "KestruneDock/Widgets/WidgetPaging.h"
#include "KestruneDock/Widgets/WidgetStore.h"

namespace kestrune {

class WidgetRow {
public:
    WidgetRow(WidgetStore& store, WidgetPaging& paging, WidgetMonitors& monitors);
    ~WidgetRow();
    WidgetRow(const WidgetRow&) = delete;
    WidgetRow& operator=(const WidgetRow&) = delete;

    [[nodiscard]] WidgetTile* tile(const Uuid& id) const;
    [[nodiscard]] WidgetPaging& paging() { return paging_; }
    [[nodiscard]] WidgetStore& store() { return store_; }
    // Tiles are measured at this depth.
    void setIconSize(double iconSize);
    // The tiles on screen now; every other one is hidden.
    void setOnScreen(const std::vector<Uuid>& ids);
    [[nodiscard]] const std::vector<Uuid>& onScreen() const { return onScreen_; }

    // A tile looks different now.
    std::function<void(const Uuid& id)> changed;

private:
    void follow(const std::vector<WidgetInstance>& instances);
    void measure(const Uuid& id);

    WidgetStore& store_;
    WidgetPaging& paging_;
    WidgetMonitors& monitors_;
    std::map<Uuid, std::unique_ptr<WidgetTile>> tiles_;
    std::vector<Uuid> onScreen_;
    double iconSize_ = WidgetPaging::defaultIconSize;
    uint64_t storeWatch_ = 0;
};

} // namespace kestrune
