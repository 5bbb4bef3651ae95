#pragma once
// OVERVIEW
// The AI Usage widget's tile: the plan limit closest to running out, of whichever coding tool, with
// its level's colour ("Claude Code · 5-hour limit", "42%"); without limits, the tokens of the last
// five hours. While shown it holds a live demand on the AI usage engine; hidden, the engine stops
// watching the tools' files.
//
// TYPICAL USAGE
//   AIUsageWidget tile(instance, monitors);
//   tile.setShown(true);
//
// Main thread only.

#include <cstdint>

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"
#include "KestruneKit/AIUsage/AIUsageEngine.h"

namespace kestrune {

class ListCard;

class AIUsageWidget final : public LinesTile {
public:
    AIUsageWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~AIUsageWidget() override;

    WidgetLines lines() const override;
    // Every tool found: its limits with their reset times, and its tokens of the last five hours
    // and of the week.
    QWidget* makeCard() override;

    struct Face {
        QString caption;
        QString value;
        QColor state;
    };
    [[nodiscard]] static Face faceFor(const AIUsageSnapshot& snapshot, Date now);

private:
    void shownChanged() override;
    [[nodiscard]] Face face() const;
    // Claude Code's status-line connection: what it is, and Connect or Disconnect.
    static void addStatusLineControls(ListCard& card, WidgetMonitors& monitors);

    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
    AIUsageEngine::Demand demand_;
};

} // namespace kestrune
