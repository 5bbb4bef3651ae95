#include "KestruneDock/SystemWidgets/NetworkWidget.h"

#include <cmath>

#include <QDBusConnection>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

#include "KestruneDock/Desktop/DesktopBus.h"
#include "KestruneKit/SystemStats/NetworkInterfaces.h"
#include "KestruneKit/SystemStats/StorageMonitor.h"

namespace kestrune {

namespace {

QString text(const std::string& words)
{
    return QString::fromStdString(words);
}

const QString networkManager = QStringLiteral("org.freedesktop.NetworkManager");

// All of an object's properties on one of its interfaces; empty when it isn't there.
void askProperties(const QDBusConnection& bus, QObject* context, const QString& path, const QString& interface,
                   std::function<void(const QVariantMap&)> then)
{
    QDBusMessage call = QDBusMessage::createMethodCall(networkManager, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"));
    call.setArguments({ interface });
    callThen(bus, call, 2000, context, [then = std::move(then)](const QDBusMessage& reply) {
        QVariantMap values;
        if (reply.type() == QDBusMessage::ReplyMessage)
            reply.arguments().value(0).value<QDBusArgument>() >> values;
        then(values);
    });
}

} // namespace

void findWifi(const QDBusConnection& bus, QObject* context, std::function<void(const std::optional<WifiNetwork>&)> done)
{
    if (!bus.isConnected()) {
        done(std::nullopt);
        return;
    }
    // The active connections are asked at once; the first on Wi-Fi answers, or none when all have.
    struct Search {
        std::function<void(const std::optional<WifiNetwork>&)> done;
        int waiting = 0;
        bool answered = false;
        void answer(const std::optional<WifiNetwork>& network)
        {
            if (!std::exchange(answered, true))
                done(network);
        }
    };
    auto search = std::make_shared<Search>();
    search->done = std::move(done);
    askProperties(bus, context, QStringLiteral("/org/freedesktop/NetworkManager"), networkManager, [bus, context, search](const QVariantMap& manager) {
        QList<QDBusObjectPath> active;
        const QDBusArgument list = manager.value(QStringLiteral("ActiveConnections")).value<QDBusArgument>();
        if (list.currentType() == QDBusArgument::ArrayType)
            list >> active;
        search->waiting = static_cast<int>(active.size());
        if (active.isEmpty())
            search->answer(std::nullopt);
        for (const QDBusObjectPath& each : active) {
            askProperties(bus, context, each.path(), networkManager + QStringLiteral(".Connection.Active"), [bus, context, search](const QVariantMap& connection) {
                QString point = connection.value(QStringLiteral("SpecificObject")).value<QDBusObjectPath>().path();
                bool wifi = connection.value(QStringLiteral("Type")).toString() == QStringLiteral("802-11-wireless") && point.size() > 1;
                if (!wifi) {
                    if (--search->waiting == 0)
                        search->answer(std::nullopt);
                    return;
                }
                askProperties(bus, context, point, networkManager + QStringLiteral(".AccessPoint"), [search](const QVariantMap& accessPoint) {
                    search->answer(WifiNetwork { QString::fromUtf8(accessPoint.value(QStringLiteral("Ssid")).toByteArray()),
                                                 accessPoint.value(QStringLiteral("Strength")).toInt() });
                });
            });
        }
    });
}

NetworkWidget::NetworkWidget(WidgetInstance instance, WidgetMonitors& monitors)
    : SystemStatsTile(std::move(instance), monitors, SystemStatsParts::network())
{
}

double NetworkWidget::length(double iconSize) const
{
    if (graph())
        return std::ceil(iconSize * 2.2);
    return std::max(iconSize * 1.6, widgetface::linesLength(iconSize, QStringLiteral("\u2191 888 KB/s"), QStringLiteral("\u2193 888 KB/s"), false));
}

void NetworkWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    const SystemStatsReading& now = reading();
    QString down = QStringLiteral("\u2193 ") + text(rateText(now.down));
    QString up = QStringLiteral("\u2191 ") + text(rateText(now.up));
    if (!graph()) {
        widgetface::paintLines(painter, tile, up, down);
        return;
    }
    double size = tile.height();
    double pad = widgetface::inset(size);
    const SystemStatsHistory& history = monitors_.systemStats().history();
    std::vector<double> downs, ups;
    double top = 1000;  // a quiet line still has a scale
    for (size_t index = 0; index < history.size(); ++index) {
        downs.push_back(history[index].down);
        ups.push_back(history[index].up);
        top = std::max({ top, history[index].down, history[index].up });
    }
    QRectF chart = tile.adjusted(pad, size * 0.18, -pad, -size * 0.14);
    if (size >= 28) {
        QFont font = widgetface::captionFont(size);
        painter.save();
        painter.setFont(font);
        painter.setPen(QColor(255, 255, 255, 200));
        painter.drawText(QRectF(chart.left(), tile.top() + size * 0.06, chart.width(), size * 0.3), Qt::AlignLeft | Qt::AlignVCenter, down);
        painter.restore();
        chart.setTop(tile.top() + size * 0.4);
    }
    systemface::paintGraph(painter, chart, downs, top * 1.1, systemface::downColour());
    systemface::paintGraph(painter, chart, ups, top * 1.1, systemface::upColour());
}

std::string NetworkWidget::faceKey() const
{
    return graph() ? accessibleText() + "#" + std::to_string(monitors_.systemStats().samples()) : accessibleText();
}

std::string NetworkWidget::accessibleText() const
{
    if (!hasSample())
        return "Network, measuring";
    return "Network, down " + rateText(reading().down) + ", up " + rateText(reading().up);
}

namespace {

class NetworkCard final : public SamplerCard {
public:
    explicit NetworkCard(WidgetMonitors& monitors) : SamplerCard(monitors, SystemStatsParts::network())
    {
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        speeds_ = new QLabel;
        speeds_->setAccessibleName(QStringLiteral("Speeds"));
        layout->addWidget(speeds_);
        QStringList lines;
        for (const NetworkInterface& each : readNetworkInterfaces()) {
            QStringList addresses;
            for (const std::string& address : each.addresses)
                addresses << text(address);
            lines << QStringLiteral("%1 (%2): %3")
                         .arg(text(each.name), each.up ? QStringLiteral("up") : QStringLiteral("down"),
                              addresses.isEmpty() ? QStringLiteral("no address") : addresses.join(QStringLiteral(", ")));
        }
        auto* interfaces = new QLabel(lines.join(QLatin1Char('\n')));
        findWifi(systemServicesBus(), interfaces, [interfaces, lines](const std::optional<WifiNetwork>& wifi) {
            if (wifi)
                interfaces->setText(QStringLiteral("Wi-Fi: %1, signal %2\u2009%").arg(wifi->name).arg(wifi->signal) + QLatin1Char('\n')
                                    + lines.join(QLatin1Char('\n')));
        });
        interfaces->setAccessibleName(QStringLiteral("Interfaces"));
        interfaces->setTextInteractionFlags(Qt::TextSelectableByMouse);
        interfaces->setWordWrap(true);
        layout->addWidget(interfaces);
        layout->addStretch();
        start();
    }

protected:
    void fill() override
    {
        const SystemStatsReading& reading = monitors_.systemStats().snapshot().reading;
        speeds_->setText(QStringLiteral("Download %1 · upload %2").arg(text(rateText(reading.down)), text(rateText(reading.up))));
    }

private:
    QLabel* speeds_ = nullptr;
};

} // namespace

QWidget* NetworkWidget::makeCard()
{
    return new NetworkCard(monitors_);
}

} // namespace kestrune
