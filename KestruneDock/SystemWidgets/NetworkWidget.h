#pragma once
// OVERVIEW
// The Network widget: download and upload now, as two speeds or a graph of the last minutes,
// every two seconds while shown. Its card lists each interface with its addresses, and the Wi-Fi
// network's name and signal when NetworkManager runs.
//
// Main thread only.

#include <functional>
#include <optional>

#include <QDBusConnection>

#include "KestruneDock/SystemWidgets/SystemStatsTile.h"

class QDBusConnection;

namespace kestrune {

class NetworkWidget final : public SystemStatsTile {
public:
    NetworkWidget(WidgetInstance instance, WidgetMonitors& monitors);

    double length(double iconSize) const override;
    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override;
    std::string accessibleText() const override;
    QWidget* makeCard() override;

protected:
    // The graph moves on with every sample.
    std::string faceKey() const override;

private:
    [[nodiscard]] bool graph() const { return instance_.style == "graph"; }
};

// The Wi-Fi network NetworkManager is connected to, asked over the system bus when a card opens;
// `done` gets none without NetworkManager or Wi-Fi, and never runs if `context` goes first.
struct WifiNetwork {
    QString name;
    int signal = 0;  // percent
};
void findWifi(const QDBusConnection& bus, QObject* context, std::function<void(const std::optional<WifiNetwork>&)> done);

} // namespace kestrune
