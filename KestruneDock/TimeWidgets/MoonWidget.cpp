#include "KestruneDock/TimeWidgets/MoonWidget.h"

#include <cmath>
#include <numbers>

#include <QLabel>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

#include "KestruneKit/Sky/MoonPhase.h"

namespace kestrune {

namespace {

// Below this depth the tile is the moon alone.
constexpr double linesFrom = 28;

QString title(const MoonReading& reading)
{
    std::string_view name = moonPhaseTitle(reading.phase);
    return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
}

QString litText(const MoonReading& reading)
{
    return QStringLiteral("%1\u2009% lit").arg(static_cast<int>(std::lround(reading.illumination * 100)));
}

QString dayOf(Date moment)
{
    return QLocale().toString(localDateTime(moment), QStringLiteral("ddd d MMM, HH:mm"));
}

} // namespace

void paintMoon(QPainter& painter, const QRectF& disc, double cycle)
{
    QPointF centre = disc.center();
    double radius = disc.width() / 2;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x3a, 0x3a, 0x40));
    painter.drawEllipse(centre, radius, radius);
    // The lit part: from the bright limb round to the terminator, an ellipse whose half-width runs
    // from the full radius (new) through nothing (quarter) to the far limb (full).
    bool waxing = cycle < 0.5;
    double side = waxing ? 1 : -1;
    double terminator = radius * std::cos(2 * std::numbers::pi * cycle);
    QPainterPath lit;
    constexpr int points = 48;
    for (int step = 0; step <= points; ++step) {
        double t = -std::numbers::pi / 2 + std::numbers::pi * step / points;
        QPointF limb(centre.x() + side * radius * std::cos(t), centre.y() - radius * std::sin(t));
        if (step == 0)
            lit.moveTo(limb);
        else
            lit.lineTo(limb);
    }
    for (int step = points; step >= 0; --step) {
        double t = -std::numbers::pi / 2 + std::numbers::pi * step / points;
        lit.lineTo(QPointF(centre.x() + side * terminator * std::cos(t), centre.y() - radius * std::sin(t)));
    }
    painter.setBrush(QColor(0xf4, 0xf1, 0xe4));
    painter.drawPath(lit);
    painter.restore();
}

double MoonWidget::length(double iconSize) const
{
    if (iconSize < linesFrom)
        return iconSize;
    return std::ceil(iconSize * 0.85 + widgetface::linesLength(iconSize, QStringLiteral("Waxing crescent"), QStringLiteral("100 % lit"), false));
}

void MoonWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    MoonReading reading = moonAt(runtime_.now());
    widgetface::paintPlate(painter, tile, context);
    double size = tile.height();
    double diameter = size * (size < linesFrom ? 0.78 : 0.62);
    double left = size < linesFrom ? tile.center().x() - diameter / 2 : tile.left() + widgetface::inset(size);
    paintMoon(painter, QRectF(left, tile.center().y() - diameter / 2, diameter, diameter), reading.cycle);
    if (size < linesFrom)
        return;
    QRectF text = tile.adjusted(left - tile.left() + diameter, 0, 0, 0);
    widgetface::paintLines(painter, text, title(reading), litText(reading));
}

std::string MoonWidget::accessibleText() const
{
    MoonReading reading = moonAt(runtime_.now());
    return ("Moon, " + title(reading) + QStringLiteral(", ") + litText(reading)).toStdString();
}

Seconds MoonWidget::untilChange(Date now) const
{
    auto since = std::chrono::duration<double>(now.time_since_epoch()).count();
    return Seconds(3600 - std::fmod(since, 3600));
}

QWidget* MoonWidget::makeCard()
{
    Date now = runtime_.now();
    MoonReading reading = moonAt(now);
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* picture = new QLabel;
    QPixmap moon(96 * card->devicePixelRatio(), 96 * card->devicePixelRatio());
    moon.setDevicePixelRatio(card->devicePixelRatio());
    moon.fill(Qt::transparent);
    {
        QPainter painter(&moon);
        paintMoon(painter, QRectF(4, 4, 88, 88), reading.cycle);
    }
    picture->setPixmap(moon);
    layout->addWidget(picture, 0, Qt::AlignHCenter);
    auto* details = new QLabel(QStringLiteral("%1 · %2\n%3 days old\nFull moon: %4\nNew moon: %5")
                                   .arg(title(reading), litText(reading))
                                   .arg(reading.ageDays, 0, 'f', 1)
                                   .arg(dayOf(nextMoonPhase(now, MoonPhaseEvent::fullMoon)), dayOf(nextMoonPhase(now, MoonPhaseEvent::newMoon))));
    details->setAccessibleName(QStringLiteral("Details"));
    details->setAlignment(Qt::AlignHCenter);
    layout->addWidget(details);
    return card;
}

} // namespace kestrune
