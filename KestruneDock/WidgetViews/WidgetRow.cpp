#include "KestruneDock/WidgetViews/WidgetRow.h"

#include <algorithm>

namespace kestrune {

WidgetRow::WidgetRow(WidgetStore& store, WidgetPaging& paging, WidgetMonitors& monitors)
    : store_(store), paging_(paging), monitors_(monitors)
{
    storeWatch_ = store_.addObserver([this](const std::vector<WidgetInstance>& instances) { follow(instances); });
    follow(store_.instances());
}

WidgetRow::~WidgetRow()
{
    store_.removeObserver(storeWatch_);
    // Hidden first, so that each gives up its want before it goes.
    setOnScreen({});
    tiles_.clear();
}

WidgetTile* WidgetRow::tile(const Uuid& id) const
{
    auto found = tiles_.find(id);
    return found == tiles_.end() ? nullptr : found->second.get();
}

void WidgetRow::follow(const std::vector<WidgetInstance>& instances)
{
    std::map<Uuid, std::unique_ptr<WidgetTile>> kept;
    // Told of their new settings once the row is whole again: a tile that redraws is looked up.
    std::vector<WidgetInstance> changedSettings;
    for (const WidgetInstance& instance : instances) {
        auto found = tiles_.find(instance.id);
        if (found != tiles_.end() && found->second && found->second->instance().kind == instance.kind) {
            const WidgetInstance& before = found->second->instance();
            if (before.style != instance.style || before.options != instance.options)
                changedSettings.push_back(instance);
            kept.emplace(instance.id, std::move(found->second));
            continue;
        }
        std::unique_ptr<WidgetTile> tile = makeWidgetTile(instance, monitors_);
        Uuid id = instance.id;
        tile->changed = [this, id] {
            measure(id);
            if (changed)
                changed(id);
        };
        tile->setOption = [this, id](const std::string& key, const std::string& value) { store_.setOption(id, key, value); };
        kept.emplace(id, std::move(tile));
    }
    // Tiles that left the row are hidden before they go.
    for (auto& [id, tile] : tiles_)
        if (tile)
            tile->setShown(false);
    tiles_ = std::move(kept);
    std::erase_if(onScreen_, [this](const Uuid& id) { return !tiles_.contains(id); });
    for (const auto& entry : tiles_)
        measure(entry.first);
    for (WidgetInstance& instance : changedSettings)
        if (WidgetTile* changed = tile(instance.id))
            changed->setInstance(std::move(instance));
}

void WidgetRow::setIconSize(double iconSize)
{
    if (iconSize == iconSize_)
        return;
    iconSize_ = iconSize;
    for (const auto& entry : tiles_)
        measure(entry.first);
}

void WidgetRow::measure(const Uuid& id)
{
    if (WidgetTile* measured = tile(id))
        paging_.setMeasurement(id, measured->length(iconSize_));
}

void WidgetRow::setOnScreen(const std::vector<Uuid>& ids)
{
    onScreen_ = ids;
    for (const auto& [id, tile] : tiles_)
        tile->setShown(std::find(ids.begin(), ids.end(), id) != ids.end());
}

} // namespace kestrune
