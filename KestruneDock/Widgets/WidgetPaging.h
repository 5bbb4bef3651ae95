#pragma once
// OVERVIEW
// Decides which widgets the dock row shows when they do not all fit. The row's tiles report their
// lengths, the dock reports the room it leaves and its icon size; the user's "widgetOverflow"
// chooses between pages (the row is cut into pages that fit and a pages tile flips between
// them) and a stack (what does not fit waits behind one stack tile).
//
// TYPICAL USAGE
//   WidgetPaging paging(store, preferences);
//   paging.setIconSize(48);
//   paging.setAvailable(600);
//   paging.setMeasurement(id, 120);          // from each tile as it lays out
//   paging.addObserver([&] { row.show(paging.shown()); });
//   paging.showNextPage();                   // a click on the pages tile
//
// A cut, once made, is kept while the lengths stay within half a point of the ones it was made
// with, so that animating tiles and sub-pixel text widths do not make the pages flicker.
// Main thread only.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneDock/Dock/DockEdge.h"
#include "KestruneDock/Widgets/WidgetStore.h"
#include "KestruneKit/Core/ObserverList.h"
#include "KestruneKit/Core/Uuid.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

enum class WidgetOverflow : uint8_t { stack = 0, pages = 1 };

[[nodiscard]] std::string_view toString(WidgetOverflow overflow);
// "stack" is the stack; anything else, and nothing, is pages.
[[nodiscard]] WidgetOverflow widgetOverflowFromPreference(const std::optional<std::string>& stored);

enum class WidgetPageTransition : uint8_t { none, forward, backward };

// The arithmetic of a cut, free of any state.
struct WidgetPageCut {
    // One sixth of the icon size: the space between two widget tiles.
    [[nodiscard]] static double gap(double iconSize) { return iconSize * 8.0 / 48.0; }
    // Lengths of `lengths[first..end)` plus a gap between each two.
    [[nodiscard]] static double runLength(std::span<const double> lengths, size_t first, size_t end, double gap);
    // How many pages the greedy cut needs; at least 1.
    [[nodiscard]] static size_t pageCount(std::span<const double> lengths, double available, double gap);
    // The greedy cut itself, as runs [first, end) per page; one empty page for no widgets.
    [[nodiscard]] static std::vector<std::pair<size_t, size_t>> cut(std::span<const double> lengths, double available, double gap);
};

class WidgetPaging {
public:
    static constexpr std::string_view overflowKey = "widgetOverflow";
    static constexpr double defaultIconSize = 52;
    // How far a length may move before the current cut is given up.
    static constexpr double cutTolerance = 0.5;

    WidgetPaging(WidgetStore& store, Preferences& preferences);
    ~WidgetPaging();
    WidgetPaging(const WidgetPaging&) = delete;
    WidgetPaging& operator=(const WidgetPaging&) = delete;

    // What the dock reports.
    void setIconSize(double iconSize);
    void setEdge(DockEdge edge);
    void setAvailable(double available);
    // What a tile reports once laid out; a widget not yet measured counts as one icon long.
    void setMeasurement(const Uuid& id, double length);

    // A click on the pages tile: the next page (the first again after the last); an option-click
    // the page before (the last before the first).
    void showNextPage();
    void showPreviousPage();

    // The widget whose card is open, and the tile it grew from; both close when the widget leaves
    // the row.
    void present(const Uuid& id, std::optional<Uuid> from = std::nullopt);
    void dismiss();

    [[nodiscard]] const std::vector<Uuid>& order() const { return order_; }
    [[nodiscard]] double iconSize() const { return iconSize_; }
    [[nodiscard]] DockEdge edge() const { return edge_; }
    [[nodiscard]] double available() const { return available_; }
    [[nodiscard]] double rest() const { return rest_; }
    [[nodiscard]] const std::map<Uuid, double>& measurements() const { return measurements_; }
    [[nodiscard]] WidgetOverflow overflow() const { return overflow_; }
    [[nodiscard]] const std::vector<std::vector<Uuid>>& pages() const { return pages_; }
    [[nodiscard]] size_t page() const { return page_; }
    [[nodiscard]] const std::vector<Uuid>& shown() const { return shown_; }
    [[nodiscard]] const std::vector<Uuid>& stacked() const { return stacked_; }
    [[nodiscard]] const std::optional<Uuid>& presented() const { return presented_; }
    [[nodiscard]] const std::optional<Uuid>& presentedFrom() const { return presentedFrom_; }
    [[nodiscard]] WidgetPageTransition transition() const { return transition_; }

    // The pages tile is there when there is more than one page; the stack tile when something is
    // stacked.
    [[nodiscard]] bool showsPagesTile() const;
    [[nodiscard]] bool showsStackTile() const;
    // The length kept for the pages or stack tile (and its gap) when one is needed.
    [[nodiscard]] double controlLength() const;

    // "1 more widget", "3 more widgets"
    [[nodiscard]] static std::string stackTitle(size_t count);
    // The stack tile's help text.
    [[nodiscard]] static std::string stackHelp(size_t count);
    [[nodiscard]] static std::string pagesHelp();
    // "Widgets, page 2 of 3"
    [[nodiscard]] static std::string accessibilityLabel(size_t page, size_t pageCount);
    // A widget's label inside the stack popover.
    [[nodiscard]] static std::string stackedLabel(std::string_view title);
    static constexpr std::string_view dragFromStackType = "kestrune.dragWidgetFromStack";

    // Called after every recomputation that changed what is shown, and after a page step.
    uint64_t addObserver(std::function<void()> observer);
    void removeObserver(uint64_t id);

private:
    void takeOrder(const std::vector<WidgetInstance>& instances);
    void readOverflow();
    // `stepped`: the page was changed by hand, so observers hear of it even if nothing else moved.
    void recompute(bool stepped = false);
    bool keepsCurrentCut(double room) const;
    double lengthOf(const Uuid& id) const;

    WidgetStore& store_;
    Preferences& preferences_;

    std::vector<Uuid> order_;
    double iconSize_ = defaultIconSize;
    DockEdge edge_ = DockEdge::bottom;
    std::map<Uuid, double> measurements_;
    std::vector<double> lengths_;
    std::map<Uuid, double> cutLengths_;
    double available_ = 0;
    double rest_ = 0;
    WidgetOverflow overflow_ = WidgetOverflow::pages;
    std::vector<std::vector<Uuid>> pages_ { {} };
    size_t page_ = 0;
    std::vector<Uuid> shown_;
    std::vector<Uuid> stacked_;
    std::optional<Uuid> presented_;
    std::optional<Uuid> presentedFrom_;
    WidgetPageTransition transition_ = WidgetPageTransition::none;

    uint64_t storeWatch_ = 0;
    uint64_t defaultsWatch_ = 0;
    ObserverList<> observers_;
};

} // namespace kestrune
