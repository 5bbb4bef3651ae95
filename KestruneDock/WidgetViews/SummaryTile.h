#pragma once
// OVERVIEW
// A tile whose face is its monitor's summary in one line, under the widget's name, with a dot of
// the state's colour: the GitHub, Containers, Dev Servers, Endpoints and Simulators tiles. While shown it holds the monitor's want.
//
// TYPICAL USAGE
//   auto tile = std::make_unique<SummaryTile>(instance, monitors, WidgetMonitors::Source::containers);
//   tile->setShown(true);
//
// Main thread only.

#include <cstdint>
#include <set>
#include <string_view>
#include <vector>

#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"

namespace kestrune {

class DevPoller;

struct DevServer;

class SummaryTile final : public LinesTile {
public:
    // Dev Servers: the ports left out, separated by spaces or commas.
    static constexpr std::string_view ignoredPortsOption = "ignoredPorts";
    // Endpoints: the addresses to check, one a line.
    static constexpr std::string_view addressesOption = "urls";

    SummaryTile(WidgetInstance instance, WidgetMonitors& monitors, WidgetMonitors::Source source);
    ~SummaryTile() override;

    WidgetLines lines() const override;
    void setInstance(WidgetInstance instance) override;
    // Dev Servers: the servers, a double-click opening one in the browser. GitHub: the pull
    // requests, likewise. Containers: the containers with Start, Stop and Restart.
    QWidget* makeCard() override;

    struct Face {
        QString value;
        QColor state;
    };
    [[nodiscard]] Face face() const;

private:
    void shownChanged() override;
    [[nodiscard]] DevPoller& poller() const;
    [[nodiscard]] std::set<int> ignoredPorts() const;
    [[nodiscard]] QString caption() const;
    // The Dev Servers monitor's servers but the ignored ports.
    [[nodiscard]] std::vector<DevServer> devServers() const;

    WidgetMonitors& monitors_;
    WidgetMonitors::Source source_;
    uint64_t watch_ = 0;
};

} // namespace kestrune
