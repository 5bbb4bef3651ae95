#pragma once
// OVERVIEW
// The Git widget's tile: one working copy (the option "folder"), its name and its standing in a
// few words ("3 changes to commit", "Up to date"), with a dot of the standing's colour. While the
// tile is shown it holds the repositories monitor's want, so the folder is read every 30 seconds.
//
// TYPICAL USAGE
//   GitWidget tile(instance, monitors);     // instance.options["folder"] = "/home/me/src/dock"
//   tile.setShown(true);
//
// Main thread only.

#include <optional>
#include <string>

#include <QColor>
#include <QString>

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune {

class ListCard;
struct RepositoryState;

class GitWidget final : public LinesTile {
public:
    static constexpr std::string_view folderOption = "folder";

    GitWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~GitWidget() override;

    void setInstance(WidgetInstance instance) override;
    WidgetLines lines() const override;
    // The branch, its upstream and how far apart they are, and the changed files; a commit of
    // everything with a message, pull, push and "Read Now", with what git said.
    QWidget* makeCard() override;

    // What the tile says, and the colour of its dot, for a state (none: not read yet).
    struct Face {
        QString caption;
        QString value;
        QColor state;
    };
    [[nodiscard]] static Face faceFor(const std::optional<std::string>& folder, const RepositoryState* state);

private:
    void shownChanged() override;
    [[nodiscard]] std::optional<std::string> folder() const;
    [[nodiscard]] Face face() const;
    static void addActions(ListCard& card, WidgetMonitors& monitors, const std::string& folder);

    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

} // namespace kestrune
