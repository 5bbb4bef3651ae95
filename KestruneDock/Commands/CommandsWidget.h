#pragma once
// OVERVIEW
// The Shortcuts widget on Linux: the user's saved shell commands, kept in the widget's option
// "commands" (a JSON array of commands). The tile tells how many there are and how the last run
// went; the card runs and stops each one, shows its cleaned output, opens it in a terminal, and
// saves new ones. Runs go through the shared ShellCommandRunner; nothing polls.
//
// TYPICAL USAGE
//   CommandsWidget tile(instance, monitors);
//   QWidget* card = tile.makeCard();
//
// Main thread only.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"
#include "KestruneKit/DevTools/ShellCommand.h"

namespace kestrune {

class CommandsWidget final : public LinesTile {
public:
    static constexpr std::string_view commandsOption = "commands";

    CommandsWidget(WidgetInstance instance, WidgetMonitors& monitors);
    ~CommandsWidget() override;

    WidgetLines lines() const override;
    QWidget* makeCard() override;

    // The saved commands of an option; entries that do not read are left out.
    [[nodiscard]] static std::vector<ShellCommand> commandsIn(const WidgetInstance& instance);
    [[nodiscard]] static std::string encode(const std::vector<ShellCommand>& commands);

    struct Face {
        QString value;
        QColor state;
    };
    [[nodiscard]] Face face() const;

private:
    WidgetMonitors& monitors_;
    uint64_t watch_ = 0;
};

} // namespace kestrune
