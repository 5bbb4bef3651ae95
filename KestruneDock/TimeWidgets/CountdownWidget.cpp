#include "KestruneDock/TimeWidgets/CountdownWidget.h"

#include <QDateEdit>
#include <QFormLayout>
#include <QLineEdit>

#include "KestruneKit/Calendar/TimeProgress.h"

namespace kestrune {

WidgetLines CountdownWidget::lines() const
{
    WidgetLines shown;
    shown.caption = QString::fromStdString(option(titleOption, "Countdown"));
    auto target = parseDay(option(dateOption));
    if (!target) {
        shown.value = QStringLiteral("Set a date in Options");
        return shown;
    }
    shown.value = QString::fromStdString(countdownText(daysBetween(civilTime(localNow()), *target)));
    return shown;
}

double CountdownWidget::length(double iconSize) const
{
    WidgetLines shown = lines();
    return std::clamp(widgetface::linesLength(iconSize, shown.caption, shown.value, false), iconSize * 1.6, std::max(iconSize * 4, 120.0));
}

void CountdownWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    WidgetLines shown = lines();
    widgetface::paintPlate(painter, tile, context);
    widgetface::paintLines(painter, tile, shown.caption, shown.value);
}

std::string CountdownWidget::accessibleText() const
{
    WidgetLines shown = lines();
    return (shown.caption + QStringLiteral(": ") + shown.value).toStdString();
}

QWidget* CountdownWidget::makeCard()
{
    auto* card = new QWidget;
    auto* form = new QFormLayout(card);
    form->setContentsMargins(0, 0, 0, 0);
    auto* title = new QLineEdit(QString::fromStdString(option(titleOption)));
    title->setAccessibleName(QStringLiteral("Title"));
    title->setPlaceholderText(QStringLiteral("Countdown"));
    auto* date = new QDateEdit;
    date->setAccessibleName(QStringLiteral("Date"));
    date->setCalendarPopup(true);
    date->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
    auto target = parseDay(option(dateOption));
    date->setDate(target ? QDate(target->year, target->month, target->day) : localNow().date().addDays(30));
    QObject::connect(title, &QLineEdit::editingFinished, card, [this, title] {
        if (setOption)
            setOption(std::string(titleOption), title->text().trimmed().toStdString());
    });
    QObject::connect(date, &QDateEdit::dateChanged, card, [this](QDate chosen) {
        if (setOption)
            setOption(std::string(dateOption), chosen.toString(Qt::ISODate).toStdString());
    });
    form->addRow(QStringLiteral("Title"), title);
    form->addRow(QStringLiteral("Date"), date);
    return card;
}

} // namespace kestrune
