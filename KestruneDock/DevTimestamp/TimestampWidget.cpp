#include "KestruneDock/DevTimestamp/TimestampWidget.h"

#include <chrono>
#include <cmath>

#include <QPainter>

namespace kestrune {

namespace {

const QString caption = QStringLiteral("Unix time");

} // namespace

long long TimestampWidget::unixSeconds(Date date)
{
    return std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
}

double TimestampWidget::length(double iconSize) const
{
    // As long as the widest ten-figure time, so that the tile keeps its length as it ticks.
    return widgetface::linesLength(iconSize, caption, QStringLiteral("0000000000"), false);
}

void TimestampWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    widgetface::paintLines(painter, tile, caption, QString::number(unixSeconds(runtime_.now())));
}

std::string TimestampWidget::accessibleText() const
{
    return "Unix time " + std::to_string(unixSeconds(runtime_.now()));
}

void TimestampWidget::shownChanged()
{
    if (!shown_) {
        tick_.cancel();
        return;
    }
    tellChanged();
    tickAtNextSecond();
}

void TimestampWidget::tickAtNextSecond()
{
    // One firing at each whole second, set anew each time so that it never drifts off it.
    Date now = runtime_.now();
    auto intoSecond = now.time_since_epoch() - std::chrono::floor<std::chrono::seconds>(now.time_since_epoch());
    Seconds wait = Seconds(1) - std::chrono::duration_cast<Seconds>(intoSecond) + Seconds(0.002);
    tick_ = runtime_.schedule(wait, TimerRepeat::once, Seconds(0.05), [this] {
        tellChanged();
        tickAtNextSecond();
    });
}

} // namespace kestrune
