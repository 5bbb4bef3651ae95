#include "KestruneDock/TimeWidgets/ProgressWidget.h"

#include <cmath>

#include <QLocale>
#include <QPainter>
#include <QProgressBar>
#include <QFormLayout>

namespace kestrune {

namespace {

constexpr int steps = 100;

int firstWeekday()
{
    return static_cast<int>(QLocale().firstDayOfWeek()) - 1;
}

QString percentText(int percent)
{
    return QStringLiteral("%1\u2009%").arg(percent);
}

} // namespace

int percentGone(ProgressSpan span, const QDateTime& now)
{
    return static_cast<int>(std::floor(progressGone(span, civilTime(now), firstWeekday()) * steps));
}

ProgressSpan ProgressWidget::span() const
{
    return progressSpanFromString(instance_.style).value_or(ProgressSpan::year);
}

QString ProgressWidget::caption(ProgressSpan span, const QDateTime& now)
{
    switch (span) {
    case ProgressSpan::year:
        return QString::number(now.date().year());
    case ProgressSpan::month:
        return QLocale().standaloneMonthName(now.date().month());
    case ProgressSpan::week:
        return QStringLiteral("Week %1").arg(isoWeek(civilTime(now)));
    case ProgressSpan::day:
        return QStringLiteral("Today");
    }
    return {};
}

double ProgressWidget::length(double iconSize) const
{
    // The longest month's name, so that the tile does not change length on the first.
    QString widest = span() == ProgressSpan::month ? QStringLiteral("September") : caption(span(), localNow());
    return std::max(iconSize * 1.6, widgetface::linesLength(iconSize, widest, percentText(100), false));
}

void ProgressWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    QDateTime now = localNow();
    double gone = progressGone(span(), civilTime(now), firstWeekday());
    widgetface::paintPlate(painter, tile, context);
    widgetface::paintLines(painter, tile, caption(span(), now), percentText(percentGone(span(), now)));
    widgetface::paintFootBar(painter, tile, gone, QColor(0x64, 0xd2, 0xff));
}

std::string ProgressWidget::accessibleText() const
{
    QDateTime now = localNow();
    return (caption(span(), now) + QStringLiteral(": ") + QString::number(percentGone(span(), now)) + QStringLiteral(" percent gone"))
        .toStdString();
}

Seconds ProgressWidget::untilChange(Date now) const
{
    return untilProgressStep(span(), civilTime(localDateTime(now)), steps, firstWeekday());
}

QWidget* ProgressWidget::makeCard()
{
    auto* card = new QWidget;
    auto* form = new QFormLayout(card);
    form->setContentsMargins(0, 0, 0, 0);
    QDateTime now = localNow();
    for (ProgressSpan each : { ProgressSpan::year, ProgressSpan::month, ProgressSpan::week, ProgressSpan::day }) {
        auto* bar = new QProgressBar;
        bar->setRange(0, steps);
        bar->setValue(percentGone(each, now));
        bar->setFormat(QStringLiteral("%p\u2009% gone"));
        bar->setAccessibleName(caption(each, now));
        form->addRow(caption(each, now), bar);
    }
    return card;
}

} // namespace kestrune
