#include "KestruneDock/SystemWidgets/SystemStatsTile.h"

#include <algorithm>

#include <QPainter>
#include <QPainterPath>

namespace kestrune {

SystemStatsTile::SystemStatsTile(WidgetInstance instance, WidgetMonitors& monitors, SystemStatsParts parts)
    : WidgetTile(std::move(instance)), monitors_(monitors), parts_(parts)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::systemStats, [this] {
        if (!shown_)
            return;
        std::string key = faceKey();
        if (key == shownKey_)
            return;
        shownKey_ = std::move(key);
        tellChanged();
    });
}

SystemStatsTile::~SystemStatsTile()
{
    monitors_.removeObserver(WidgetMonitors::Source::systemStats, watch_);
}

const SystemStatsReading& SystemStatsTile::reading() const
{
    return monitors_.systemStats().snapshot().reading;
}

bool SystemStatsTile::hasSample() const
{
    return monitors_.systemStats().snapshot().at.has_value();
}

void SystemStatsTile::shownChanged()
{
    shownKey_.clear();
    if (shown_)
        demand_ = monitors_.systemStats().demand(parts_, sampleInterval);
    else
        demand_ = {};
}

SamplerCard::SamplerCard(WidgetMonitors& monitors, SystemStatsParts parts) : monitors_(monitors)
{
    demand_ = monitors_.systemStats().demand(parts, SystemStatsTile::sampleInterval);
    watch_ = monitors_.addObserver(WidgetMonitors::Source::systemStats, [this] { fill(); });
}

SamplerCard::~SamplerCard()
{
    monitors_.removeObserver(WidgetMonitors::Source::systemStats, watch_);
}

namespace systemface {

QColor processorColour() { return { 0x64, 0xd2, 0xff }; }
QColor graphicsColour() { return { 0xbf, 0x5a, 0xf2 }; }
QColor downColour() { return { 0x64, 0xd2, 0xff }; }
QColor upColour() { return { 0xff, 0x9f, 0x0a }; }

QColor memoryColour(SystemStatsPressure pressure)
{
    switch (pressure) {
    case SystemStatsPressure::warning: return stateColour::waiting();
    case SystemStatsPressure::critical: return stateColour::trouble();
    case SystemStatsPressure::normal:
    case SystemStatsPressure::unknown: break;
    }
    return stateColour::good();
}

void paintBar(QPainter& painter, const QRectF& box, double fraction, const QColor& colour)
{
    double radius = std::min(box.width() / 2, 3.0);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(255, 255, 255, 40));
    painter.drawRoundedRect(box, radius, radius);
    double height = box.height() * std::clamp(fraction, 0.0, 1.0);
    if (height > 0.5) {
        painter.setBrush(colour);
        painter.drawRoundedRect(QRectF(box.left(), box.bottom() - height, box.width(), height), radius, radius);
    }
    painter.restore();
}

void paintRing(QPainter& painter, const QRectF& box, double fraction, const QColor& colour, double stroke)
{
    QRectF circle = box.adjusted(stroke / 2, stroke / 2, -stroke / 2, -stroke / 2);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(255, 255, 255, 40), stroke));
    painter.drawEllipse(circle);
    int span = -static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 360 * 16);
    if (span != 0) {
        painter.setPen(QPen(colour, stroke, Qt::SolidLine, Qt::RoundCap));
        painter.drawArc(circle, 90 * 16, span);
    }
    painter.restore();
}

void paintGraph(QPainter& painter, const QRectF& box, const std::vector<double>& values, double top, const QColor& colour)
{
    if (values.size() < 2 || !(top > 0))
        return;
    QPainterPath line;
    for (size_t index = 0; index < values.size(); ++index) {
        double x = box.left() + box.width() * static_cast<double>(index) / static_cast<double>(values.size() - 1);
        double y = box.bottom() - box.height() * std::clamp(values[index] / top, 0.0, 1.0);
        if (index == 0)
            line.moveTo(x, y);
        else
            line.lineTo(x, y);
    }
    QPainterPath area = line;
    area.lineTo(box.right(), box.bottom());
    area.lineTo(box.left(), box.bottom());
    area.closeSubpath();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QColor fill = colour;
    fill.setAlpha(60);
    painter.fillPath(area, fill);
    painter.setPen(QPen(colour, 1.2));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(line);
    painter.restore();
}

} // namespace systemface

} // namespace kestrune
