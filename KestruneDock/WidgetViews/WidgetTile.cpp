#include "KestruneDock/WidgetViews/WidgetTile.h"

#include <algorithm>
#include <cmath>

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

#include "KestruneDock/AIUsage/AIUsageWidget.h"
#include "KestruneDock/Commands/CommandsWidget.h"
#include "KestruneDock/DevGit/GitWidget.h"
#include "KestruneDock/DevTimestamp/TimestampWidget.h"
#include "KestruneDock/DesktopWidgets/ControlsWidget.h"
#include "KestruneDock/DesktopWidgets/SpacesWidget.h"
#include "KestruneDock/PowerWidgets/BatteryWidget.h"
#include "KestruneDock/PowerWidgets/KeepAwakeWidget.h"
#include "KestruneDock/ScreenTimeWidgets/ScreenTimeWidget.h"
#include "KestruneDock/SoundWidgets/SoundWidget.h"
#include "KestruneDock/SystemWidgets/ActivityWidget.h"
#include "KestruneDock/SystemWidgets/NetworkWidget.h"
#include "KestruneDock/SystemWidgets/StorageWidget.h"
#include "KestruneDock/TimeWidgets/ClockWidget.h"
#include "KestruneDock/TimeWidgets/CountdownWidget.h"
#include "KestruneDock/TimeWidgets/MoonWidget.h"
#include "KestruneDock/TimeWidgets/ProgressWidget.h"
#include "KestruneDock/WidgetViews/SummaryTile.h"

namespace kestrune {

void WidgetTile::setInstance(WidgetInstance instance)
{
    instance_ = std::move(instance);
    tellChanged();
}

std::string WidgetTile::accessibleText() const
{
    return std::string(title(instance_.kind));
}

void WidgetTile::setShown(bool shown)
{
    if (shown == shown_)
        return;
    shown_ = shown;
    shownChanged();
}

namespace stateColour {
QColor good() { return { 0x4c, 0xd9, 0x64 }; }
QColor waiting() { return { 0xff, 0xb3, 0x40 }; }
QColor trouble() { return { 0xff, 0x5f, 0x57 }; }
QColor unknown() { return { 0x9a, 0xa0, 0xa6 }; }
} // namespace stateColour

namespace widgetface {

QFont captionFont(double iconSize)
{
    QFont font;
    font.setPixelSize(std::max(7, static_cast<int>(std::lround(iconSize * 0.2))));
    font.setWeight(QFont::DemiBold);
    return font;
}

QFont valueFont(double iconSize)
{
    QFont font;
    font.setPixelSize(std::max(8, static_cast<int>(std::lround(iconSize * 0.3))));
    font.setWeight(QFont::Medium);
    return font;
}

double inset(double iconSize)
{
    return std::max(4.0, iconSize * 0.18);
}

void paintPlate(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context)
{
    double radius = std::min(tile.height() * 0.22, 14.0);
    painter.setPen(Qt::NoPen);
    painter.setBrush(context.translucent ? QColor(255, 255, 255, 26) : QColor(0x3a, 0x3e, 0x45));
    painter.drawRoundedRect(tile, radius, radius);
}

namespace {

double dotSize(double iconSize) { return std::max(4.0, iconSize * 0.13); }

} // namespace

namespace {

// Below this depth two lines cannot both be read: the value stands alone, larger.
constexpr double twoLinesFrom = 28;

QFont aloneFont(double iconSize)
{
    QFont font;
    font.setPixelSize(std::max(8, static_cast<int>(std::lround(iconSize * 0.56))));
    font.setWeight(QFont::Medium);
    return font;
}

} // namespace

void paintLines(QPainter& painter, const QRectF& tile, const QString& caption, const QString& value, std::optional<QColor> state)
{
    double size = tile.height();
    if (size < twoLinesFrom) {
        double left = tile.left() + inset(size);
        double right = tile.right() - inset(size);
        painter.save();
        if (state) {
            double dot = dotSize(size);
            painter.setPen(Qt::NoPen);
            painter.setBrush(*state);
            painter.drawEllipse(QRectF(left, tile.center().y() - dot / 2, dot, dot));
            left += dot * 1.6;
        }
        QFont alone = aloneFont(size);
        painter.setFont(alone);
        painter.setPen(QColor(255, 255, 255, 240));
        painter.drawText(QRectF(left, tile.top(), right - left, size), Qt::AlignLeft | Qt::AlignVCenter,
                         QFontMetricsF(alone).elidedText(value, Qt::ElideRight, right - left));
        painter.restore();
        return;
    }
    double left = tile.left() + inset(size);
    double right = tile.right() - inset(size);
    QFont small = captionFont(size);
    QFont large = valueFont(size);
    QFontMetricsF smallMetrics(small);
    QFontMetricsF largeMetrics(large);
    // The two lines sit together in the middle of the plate.
    double block = smallMetrics.height() + largeMetrics.height();
    double top = tile.top() + (size - block) / 2;
    painter.save();
    if (state) {
        double dot = dotSize(size);
        painter.setPen(Qt::NoPen);
        painter.setBrush(*state);
        painter.drawEllipse(QRectF(left, top + (smallMetrics.height() - dot) / 2, dot, dot));
        left += dot + dot * 0.6;
    }
    painter.setFont(small);
    painter.setPen(QColor(255, 255, 255, 170));
    painter.drawText(QRectF(left, top, right - left, smallMetrics.height()), Qt::AlignLeft | Qt::AlignVCenter,
                     smallMetrics.elidedText(caption, Qt::ElideRight, right - left));
    double valueLeft = tile.left() + inset(size);
    painter.setFont(large);
    painter.setPen(QColor(255, 255, 255, 240));
    painter.drawText(QRectF(valueLeft, top + smallMetrics.height(), right - valueLeft, largeMetrics.height()),
                     Qt::AlignLeft | Qt::AlignVCenter, largeMetrics.elidedText(value, Qt::ElideRight, right - valueLeft));
    painter.restore();
}

void paintFootBar(QPainter& painter, const QRectF& tile, double fraction, const QColor& colour)
{
    double size = tile.height();
    if (size < twoLinesFrom)
        return;
    double pad = inset(size);
    double thickness = std::max(2.0, size * 0.07);
    QRectF track(tile.left() + pad, tile.bottom() - pad * 0.55 - thickness, tile.width() - 2 * pad, thickness);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(255, 255, 255, 45));
    painter.drawRoundedRect(track, thickness / 2, thickness / 2);
    painter.setBrush(colour);
    QRectF done = track;
    done.setWidth(std::max(thickness, track.width() * std::clamp(fraction, 0.0, 1.0)));
    painter.drawRoundedRect(done, thickness / 2, thickness / 2);
    painter.restore();
}

QString shortProblem(const QString& sentence)
{
    return sentence.section(QStringLiteral(", so "), 0, 0);
}

double linesLength(double iconSize, const QString& caption, const QString& value, bool withState)
{
    if (iconSize < twoLinesFrom) {
        double width = QFontMetricsF(aloneFont(iconSize)).horizontalAdvance(value) + (withState ? dotSize(iconSize) * 1.6 : 0);
        return std::ceil(width + 2 * inset(iconSize));
    }
    double captionWidth = QFontMetricsF(captionFont(iconSize)).horizontalAdvance(caption);
    if (withState)
        captionWidth += dotSize(iconSize) * 1.6;
    double valueWidth = QFontMetricsF(valueFont(iconSize)).horizontalAdvance(value);
    // Whole points, so that a text a hair wider does not move the row.
    return std::ceil(std::max(captionWidth, valueWidth) + 2 * inset(iconSize));
}

} // namespace widgetface

namespace {

// A kind whose tile is still to come: its name on the plate.
class NamedTile final : public WidgetTile {
public:
    using WidgetTile::WidgetTile;

    double length(double iconSize) const override
    {
        return std::max(iconSize * 1.6, widgetface::linesLength(iconSize, QString(), title(), false));
    }

    void paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const override
    {
        widgetface::paintPlate(painter, tile, context);
        widgetface::paintLines(painter, tile, QString(), title());
    }

private:
    [[nodiscard]] QString title() const
    {
        std::string_view name = kestrune::title(instance_.kind);
        return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
    }
};

} // namespace

double LinesTile::length(double iconSize) const
{
    WidgetLines shown = lines();
    // A small dock still gives a value room to be read.
    double most = std::max(iconSize * longest_, 120.0);
    return std::clamp(widgetface::linesLength(iconSize, shown.caption, shown.value, shown.state.has_value()), iconSize * 2, most);
}

void LinesTile::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    WidgetLines shown = lines();
    widgetface::paintPlate(painter, tile, context);
    widgetface::paintLines(painter, tile, shown.caption, shown.value, shown.state);
}

std::string LinesTile::accessibleText() const
{
    WidgetLines shown = lines();
    return (shown.caption + QStringLiteral(": ") + (shown.whole.isEmpty() ? shown.value : shown.whole)).toStdString();
}

std::unique_ptr<WidgetTile> makeWidgetTile(const WidgetInstance& instance, WidgetMonitors& monitors)
{
    switch (instance.kind) {
    case WidgetKind::git:
        return std::make_unique<GitWidget>(instance, monitors);
    case WidgetKind::battery:
    case WidgetKind::devices:
        return std::make_unique<BatteryWidget>(instance, monitors);
    case WidgetKind::appearance:
        return std::make_unique<AppearanceWidget>(instance, monitors);
    case WidgetKind::desktopIcons:
        return std::make_unique<DesktopIconsWidget>(instance, monitors);
    case WidgetKind::controls:
        return std::make_unique<ControlsWidget>(instance, monitors);
    case WidgetKind::spaces:
        return std::make_unique<SpacesWidget>(instance, monitors);
    case WidgetKind::screenTime:
        return std::make_unique<ScreenTimeWidget>(instance, monitors);
    case WidgetKind::sound:
        return std::make_unique<SoundWidget>(instance, monitors);
    case WidgetKind::micCamera:
        return std::make_unique<MicCameraWidget>(instance, monitors);
    case WidgetKind::keepAwake:
        return std::make_unique<KeepAwakeWidget>(instance, monitors);
    case WidgetKind::lockSleep:
        return std::make_unique<LockSleepWidget>(instance);
    case WidgetKind::activity:
        return std::make_unique<ActivityWidget>(instance, monitors);
    case WidgetKind::network:
        return std::make_unique<NetworkWidget>(instance, monitors);
    case WidgetKind::storage:
    case WidgetKind::drives:
        return std::make_unique<StorageWidget>(instance, monitors);
    case WidgetKind::clock:
        return std::make_unique<ClockWidget>(instance, monitors.runtime());
    case WidgetKind::progress:
        return std::make_unique<ProgressWidget>(instance, monitors.runtime());
    case WidgetKind::moon:
        return std::make_unique<MoonWidget>(instance, monitors.runtime());
    case WidgetKind::countdown:
        return std::make_unique<CountdownWidget>(instance, monitors.runtime());
    case WidgetKind::timestamp:
        return std::make_unique<TimestampWidget>(instance, monitors.runtime());
    case WidgetKind::github:
        return std::make_unique<SummaryTile>(instance, monitors, WidgetMonitors::Source::pullRequests);
    case WidgetKind::containers:
        return std::make_unique<SummaryTile>(instance, monitors, WidgetMonitors::Source::containers);
    case WidgetKind::aiUsage:
        return std::make_unique<AIUsageWidget>(instance, monitors);
    case WidgetKind::shortcuts:
        return std::make_unique<CommandsWidget>(instance, monitors);
    case WidgetKind::endpoints:
        return std::make_unique<SummaryTile>(instance, monitors, WidgetMonitors::Source::endpoints);
    case WidgetKind::devServers:
        return std::make_unique<SummaryTile>(instance, monitors, WidgetMonitors::Source::devServers);
    case WidgetKind::simulators:
        return std::make_unique<SummaryTile>(instance, monitors, WidgetMonitors::Source::simulators);
    default:
        return std::make_unique<NamedTile>(instance);
    }
}

} // namespace kestrune
