#include "KestruneDock/DevTimestamp/TimestampWidget.h"

#include <chrono>
#include <cmath>

#include <QDateTime>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QVBoxLayout>

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

QString TimestampWidget::convert(const QString& input)
{
    QString trimmed = input.trimmed();
    QDateTime moment;
    bool number = false;
    qint64 value = trimmed.toLongLong(&number);
    if (number) {
        // Thirteen figures and more are milliseconds, as JavaScript's Date.now() gives.
        moment = trimmed.size() >= 13 ? QDateTime::fromMSecsSinceEpoch(value, Qt::UTC) : QDateTime::fromSecsSinceEpoch(value, Qt::UTC);
    } else {
        moment = QDateTime::fromString(trimmed, Qt::ISODateWithMs);
        if (!moment.isValid())
            moment = QDateTime::fromString(trimmed, Qt::ISODate);
    }
    if (!moment.isValid())
        return {};
    return QStringLiteral("Seconds: %1\nMilliseconds: %2\nUTC: %3\nLocal: %4")
        .arg(moment.toSecsSinceEpoch())
        .arg(moment.toMSecsSinceEpoch())
        .arg(moment.toUTC().toString(Qt::ISODateWithMs))
        .arg(moment.toLocalTime().toString(Qt::ISODateWithMs));
}

QWidget* TimestampWidget::makeCard()
{
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* field = new QLineEdit;
    field->setAccessibleName(QStringLiteral("Timestamp or date"));
    field->setPlaceholderText(QStringLiteral("1700000000, 1700000000000 or 2026-11-23T18:00:00Z"));
    field->setText(QString::number(unixSeconds(runtime_.now())));
    auto* shown = new QLabel;
    shown->setAccessibleName(QStringLiteral("Converted"));
    shown->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto show = [field, shown] {
        QString converted = convert(field->text());
        shown->setText(converted.isEmpty() ? QStringLiteral("Not a timestamp or an ISO 8601 date") : converted);
    };
    QObject::connect(field, &QLineEdit::textChanged, shown, show);
    show();
    layout->addWidget(field);
    layout->addWidget(shown);
    layout->addStretch();
    return card;
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
